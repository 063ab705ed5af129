#include "usermodel/preferences/mode_cards.h"

#include <array>
#include <utility>

namespace kestrin {
namespace {

constexpr std::array<ModeCard, 8> voiceModes{{
    {"email", "Email", "envelope.fill", "Professional email composition"},
    {"dictation", "Dictation", "text.alignleft", "Exact speech transcription"},
    {"chat", "Chat", "bubble.left.and.bubble.right.fill", "Conversational responses"},
    {"compose", "Compose", "doc.richtext.fill", "Creative content generation"},
    {"notes", "Notes", "note.text", "Structured note-taking"},
    {"draw", "Image Prompt", "paintbrush.fill", "AI image prompt generation"},
    {"search", "Search", "magnifyingglass", "Web search queries"},
    {"command", "Command", "terminal.fill", "System command execution"},
}};

constexpr std::array<ModeCard, 2> liveAssist{{
    {"sales_call", "Sales Call", "phone.fill", "Real-time assistance during sales calls"},
    {"meeting", "Meeting", "person.3.fill", "Real-time assistance during meetings"},
}};

constexpr std::array<std::pair<const char*, const char*>, 7> samples{{
    {"email", "Send a quick email to the team about the meeting time change to 3pm tomorrow"},
    {"chat", "Hey, thanks for the help yesterday. Really appreciate it!"},
    {"notes", "Meeting notes. Discussed budget, timeline, and next steps for the project."},
    {"search", "Find the best machine learning courses online"},
    {"compose", "Write about the importance of clean energy for the future"},
    {"command", "Open the terminal and run git status"},
    {"dictation", "The quick brown fox jumps over the lazy dog"},
}};

}  // namespace

std::span<const ModeCard> voiceModeCards() { return voiceModes; }
std::span<const ModeCard> liveAssistCards() { return liveAssist; }

std::string modeSample(const std::string& mode) {
  for (const auto& [id, sample] : samples) {
    if (mode == id) return sample;
  }
  return "Hello, this is a test of the " + mode + " mode.";
}

}  // namespace kestrin
