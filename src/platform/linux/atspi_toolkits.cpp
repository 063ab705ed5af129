#include "platform/linux/atspi_toolkits.h"

#include <cctype>
#include <iterator>

namespace kestrin::atspi {
namespace {

using Unit = TextConvention::Unit;
using Length = TextConvention::Length;

struct ToolkitRow {
  std::string_view name;
  TextConvention convention;
};

constexpr ToolkitRow editors[] = {
    {"gtk", {Unit::codePoints, Length::utf8Bytes, false, false}},
    {"GTK", {Unit::codePoints, Length::utf8Bytes, false, true}},
    {"Qt", {Unit::utf16, Length::utf16Units, true, false}},
};

struct RoleRow {
  uint32_t role;
  const char* word;
};

constexpr RoleRow roles[] = {
    {7, "AXCheckBox"},   // check box
    {11, "AXComboBox"},  // combo box
    {roleDialog, "AXWindow"},
    {18, "AXGroup"},  // drawing area
    {20, "AXGroup"},  // filler; a plain Qt window and GTK 4's containers
    {roleFrame, "AXWindow"},
    {27, "AXImage"},       // image
    {28, "AXWindow"},      // internal frame
    {29, "AXStaticText"},  // label
    {31, "AXList"},        // list
    {32, "AXRow"},         // list item
    {33, "AXMenu"},        // menu
    {34, "AXMenuBar"},     // menu bar
    {35, "AXMenuItem"},    // menu item
    {rolePageTab, "AXRadioButton"},
    {rolePageTabList, "AXTabGroup"},
    {39, "AXGroup"},  // panel
    {rolePassword, "AXSecureTextField"},
    {43, "AXButton"},       // push button
    {44, "AXRadioButton"},  // radio button
    {48, "AXScrollBar"},    // scroll bar
    {49, "AXScrollArea"},   // scroll pane
    {51, "AXSlider"},       // slider
    {52, "AXIncrementor"},  // spin button
    {55, "AXTable"},        // table
    {56, "AXCell"},         // table cell
    {60, "AXTerminal"},     // terminal
    {63, "AXToolbar"},      // tool bar
    {65, "AXOutline"},      // tree
    {66, "AXOutline"},      // tree table
    {roleWindow, "AXWindow"},
    {75, "AXApplication"},  // application
    {78, "AXTextField"},    // autocomplete
    {roleDocumentFrame, "AXWebArea"},
    {83, "AXHeading"},  // heading
    {85, "AXGroup"},    // section
    {87, "AXGroup"},    // form
    {roleLink, "AXLink"},
    {roleDocumentWeb, "AXWebArea"},
    {roleStatic, "AXStaticText"},
};

}  // namespace

std::optional<TextConvention> editingConvention(std::string_view toolkit) {
  for (const auto& row : editors) {
    if (row.name == toolkit) return row.convention;
  }
  return std::nullopt;
}

Unit readingUnit(std::string_view toolkit) {
  const auto convention = editingConvention(toolkit);
  return convention ? convention->offsets : Unit::codePoints;
}

std::string roleWord(uint32_t role, bool multiLine) {
  // text, entry, edit bar
  if (role == 61 || role == 79 || role == 77) return multiLine ? "AXTextArea" : "AXTextField";
  for (const auto& row : roles) {
    if (row.role == role) return row.word;
  }
  return {};
}

std::string plainRoleWord(std::string_view busRoleName) {
  std::string word = "AX";
  bool upper = true;
  for (const char c : busRoleName) {
    if (std::isspace(static_cast<unsigned char>(c))) {
      upper = true;
      continue;
    }
    word += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    upper = false;
  }
  return word;
}

}  // namespace kestrin::atspi
