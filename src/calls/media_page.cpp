#include "calls/media_page.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* style = R"css(
html, body { margin: 0; height: 100%; background: BACKGROUND; color: #eee;
  font: 15px system-ui, sans-serif; overflow: hidden; }
#remote-video { position: absolute; inset: 0; display: flex; align-items: center;
  justify-content: center; }
#remote-video video { width: 100%; height: 100%; object-fit: contain; }
#local-video { position: absolute; right: 16px; bottom: 16px; width: 22%; max-width: 240px;
  border-radius: 12px; overflow: hidden; background: #000; }
#local-video video { width: 100%; display: block; transform: scaleX(-1); }
#avatar { position: absolute; inset: 0; display: none; align-items: center;
  justify-content: center; font-size: 96px; }
#status { position: absolute; top: 16px; left: 50%; transform: translateX(-50%);
  padding: 6px 16px; border-radius: 16px; background: rgba(40, 40, 46, .9);
  transition: opacity .6s; }
#status.failed { background: #b3261e; }
#status.faded { opacity: 0; }
)css";

/// After the constants `token`, `roomName`, `audioOnly`, `words` and `videoRequest`.
constexpr const char* joining = R"js(
const pill = document.getElementById('status');
let fading = 0;
function say(text, kind) {
  clearTimeout(fading);
  pill.textContent = text;
  pill.className = kind || '';
  if (kind === 'brief') fading = setTimeout(() => { pill.className = 'faded'; }, 2000);
}
function attach(track) {
  if (!track || !track.attach) return;
  const element = track.attach();
  const place = track.kind === 'audio' ? document.body : document.getElementById('remote-video');
  place.appendChild(element);
}
function detach(track) {
  if (track && track.detach) track.detach().forEach((element) => element.remove());
}
function participantConnected(participant) {
  participant.tracks.forEach((publication) => {
    if (publication.isSubscribed) attach(publication.track);
  });
  participant.on('trackSubscribed', attach);
  participant.on('trackUnsubscribed', detach);
  say(words.inCall, 'brief');
}
async function connect() {
  say(words.connecting);
  try {
    say(words.joining);
    const room = await Twilio.Video.connect(token,
      { name: roomName, audio: true, video: audioOnly ? false : videoRequest });
    window.currentRoom = room;
    say(words.connected);
    if (!audioOnly) {
      room.localParticipant.videoTracks.forEach((publication) => {
        document.getElementById('local-video').appendChild(publication.track.attach());
      });
    }
    room.participants.forEach(participantConnected);
    room.on('participantConnected', participantConnected);
    room.on('participantDisconnected', (participant) => {
      participant.tracks.forEach((publication) => detach(publication.track));
      say(words.left);
      if (words.leftInRoom) {
        const note = document.createElement('div');
        note.textContent = words.left;
        document.getElementById('remote-video').replaceChildren(note);
      }
    });
    room.on('disconnected', () => say(words.ended));
  } catch (error) {
    say(words.failed(error), 'failed');
  }
}
if (audioOnly) {
  document.getElementById('local-video').style.display = 'none';
  document.getElementById('avatar').style.display = 'flex';
}
connect();
)js";

constexpr const char* wordsOfTheView = R"js({
  connecting: 'Connecting…', joining: 'Joining room…', connected: 'Connected', inCall: 'In call',
  left: 'Participant left', leftInRoom: true, ended: 'Call ended',
  failed: (error) => 'Error: ' + error.message })js";
constexpr const char* wordsElsewhere = R"js({
  connecting: 'Connecting...', joining: 'Connecting...', connected: 'Connecting...', inCall: '',
  left: 'Call ended', leftInRoom: false, ended: 'Call ended',
  failed: () => 'Connection failed' })js";

std::string background(MediaPageHost host) {
  switch (host) {
    case MediaPageHost::callsView:
      return "#141414";
    case MediaPageHost::embedded:
      return "#1a1a1a";
    case MediaPageHost::overlay:
      break;
  }
  return "black";
}

/// Over the tracks of one kind that the user gives.
std::string enableScript(const char* tracks, bool on) {
  return std::string("if(window.currentRoom) window.currentRoom.localParticipant.") + tracks +
         ".forEach((pub) => { if(pub.track) pub.track.enable(" + (on ? "true" : "false") + "); });";
}

}  // namespace

std::string escapeForScript(const std::string& text) {
  static constexpr const char* digits = "0123456789abcdef";
  std::string out;
  for (const char c : text::replaceInvalidUtf8(text)) {
    const auto byte = static_cast<unsigned char>(c);
    // Nothing that ends the text, the script or a line of it.
    if (byte < 0x20 || std::string_view("'\"\\`<>&/").find(c) != std::string_view::npos) {
      out += std::string("\\u00") + digits[byte >> 4] + digits[byte & 15];
    } else {
      out += c;
    }
  }
  out = text::replaceAll(std::move(out), "\u2028", "\\u2028");
  return text::replaceAll(std::move(out), "\u2029", "\\u2029");
}

std::string mediaPage(MediaPageHost host, const MediaPageValues& values) {
  const bool ours = host == MediaPageHost::callsView;
  std::string page = "<!DOCTYPE html><html><head><meta charset='utf-8'><style>" +
                     text::replaceAll(style, "BACKGROUND", background(host)) +
                     "</style></head><body><div id='remote-video'></div><div id='avatar'>🎙</div>"
                     "<div id='local-video'></div><div id='status' role='status'></div><script>\n";
  // Only a page that carries it has rooms of our own.
  if (values.token.starts_with(ownRoomTokenPrefix)) page += callRoomScript;
  page += "const token = '" + escapeForScript(values.token) + "';\nconst roomName = '" +
          escapeForScript(values.roomName) +
          "';\nconst audioOnly = " + (ours && values.audioOnly ? "true" : "false") +
          ";\nconst videoRequest = " +
          (ours ? "{ width: 1280, height: 720 }" : "{ width: 640, height: 480, frameRate: 24 }") +
          ";\nconst words = " + (ours ? wordsOfTheView : wordsElsewhere) + ";\n" + joining +
          "</script></body></html>";
  return page;
}

std::string blankPage(MediaPageHost host) {
  return "<html><body style='background:" + background(host) + "'></body></html>";
}

std::string muteScript(bool muted) { return enableScript("audioTracks", !muted); }
std::string cameraScript(bool off) { return enableScript("videoTracks", !off); }

}  // namespace kestrin
