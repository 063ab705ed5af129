#pragma once

#include <string>
#include <vector>

namespace kestrin {

/// The container's names and the words of every command line of the tool; each element is one
/// argument. Shell texts run inside the container only and hold nothing but constants.
namespace docker {

using Arguments = std::vector<std::string>;

inline constexpr const char* image = "kestrinasr/unified-nollm:latest";
inline constexpr const char* container = "kestrin-unified";
inline constexpr const char* modelPath = "/app/models/qwen2.5-3b-instruct-q4_k_m.gguf";
inline constexpr const char* modelUrl =
    "https://huggingface.co/Qwen/Qwen2.5-3B-Instruct-GGUF/resolve/main/"
    "qwen2.5-3b-instruct-q4_k_m.gguf";

Arguments daemonCheck();
Arguments containerStatus();
Arguments imageCheck();
Arguments startExisting();
Arguments remove();
Arguments pull();
Arguments create();
Arguments stop();
Arguments runningCheck();
Arguments modelCheck();
Arguments modelDownload();
Arguments languageModelRestart();

}  // namespace docker
}  // namespace kestrin
