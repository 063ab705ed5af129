#pragma once

#include <string>

namespace kestrin {

/// Which of the hosts of a call's page it is made for.
enum class MediaPageHost { callsView, embedded, overlay };

struct MediaPageValues {
  std::string token;
  std::string roomName;
  bool audioOnly = false;  ///< the page of the calls view alone
};

/// The page of a call: it joins the room with the media library that was loaded before it, and
/// keeps the room as `window.currentRoom`. Every value is escaped for where it stands.
std::string mediaPage(MediaPageHost host, const MediaPageValues& values);

/// Of the calls view, in 1280 by 720.
inline std::string createVideoHTML(const std::string& token, const std::string& roomName,
                                   bool audioOnly) {
  return mediaPage(MediaPageHost::callsView, {token, roomName, audioOnly});
}

/// What the page is cleared with.
std::string blankPage(MediaPageHost host);

// Scripts for a page; without effect before it has joined.
std::string muteScript(bool muted);
std::string cameraScript(bool off);
inline constexpr const char* disconnectScript =
    "if(window.currentRoom) window.currentRoom.disconnect();";

/// The media library of our own rooms: the same interface as the hosted one's, as far as the page
/// uses it, over WebRTC between the two pages. Signals go out by `kestrin.send({room: ...})` and
/// come in by `kestrinRoom.receive(...)`.
extern const char* const callRoomScript;

/// Tokens of our own rooms begin with it; all others belong to the hosted service.
inline constexpr const char* ownRoomTokenPrefix = "kestrin-room.";

/// The text between single quotes in a script, which may itself stand in HTML.
std::string escapeForScript(const std::string& text);

}  // namespace kestrin
