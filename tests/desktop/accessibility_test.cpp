#include <gtest/gtest.h>

#include "desktop/text_worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Subject {
  const char* name;
  std::unique_ptr<RealWorld> (*make)();
};

const Subject subjects[] = {
    {"QTextEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QTextEdit")); }},
    {"QPlainTextEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QPlainTextEdit")); }},
    {"QLineEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QLineEdit")); }},
    {"mousepad",
     [] {
       return std::unique_ptr<RealWorld>(new EditorWorld({"mousepad", "--disable-server"}));
     }},
    {"featherpad",
     [] {
       return std::unique_ptr<RealWorld>(new EditorWorld({"featherpad", "--standalone"}));
     }},
};

struct Rule {
  const char* name;
  void (*body)(TextWorld&);
};

const Rule rules[] = {
    {"ReadsInUtf16", readsInUtf16},
    {"InsertsInOrderAndLeavesTheUserAlone", insertsInOrderAndLeavesTheUserAlone},
    {"MovesTheUsersCaretWithTheText", movesTheUsersCaretWithTheText},
    {"TellsForeignChangesFromItsOwn", tellsForeignChangesFromItsOwn},
    {"SaysThatAProgramIsGone", saysThatAProgramIsGone},
};

class DesktopAccessibility : public testing::TestWithParam<std::tuple<Subject, Rule>> {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "needs a display: scripts/desktop-session";
  }
};

TEST_P(DesktopAccessibility, Holds) {
  auto world = std::get<0>(GetParam()).make();
  std::get<1>(GetParam()).body(*world);
}

INSTANTIATE_TEST_SUITE_P(Contract, DesktopAccessibility,
                         testing::Combine(testing::ValuesIn(subjects), testing::ValuesIn(rules)),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param).name) + "_" +
                                  std::get<1>(info.param).name;
                         });

}  // namespace
}  // namespace kestrin
