#pragma once

#include "app/doctor.h"
#include "platform/platform.h"

namespace kestrin::cli {

/// How a terminal program examines this machine.
Doctor::Options examinationOptions(Platform& platform);

}  // namespace kestrin::cli
