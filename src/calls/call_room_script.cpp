#include "calls/media_page.h"

namespace kestrin {

const char* const callRoomScript = R"js(
(() => {
  class Emitter {
    constructor() { this.listeners = new Map(); }
    on(name, listener) {
      this.listeners.set(name, [...(this.listeners.get(name) || []), listener]);
      return this;
    }
    emit(name, ...values) { (this.listeners.get(name) || []).forEach((each) => each(...values)); }
  }

  class Track {
    constructor(media) {
      this.mediaStreamTrack = media;
      this.kind = media.kind;
      this.elements = [];
    }
    get isEnabled() { return this.mediaStreamTrack.enabled; }
    enable(on = true) { this.mediaStreamTrack.enabled = on; return this; }
    disable() { return this.enable(false); }
    attach() {
      const element = document.createElement(this.kind);
      element.autoplay = true;
      element.srcObject = new MediaStream([this.mediaStreamTrack]);
      this.elements.push(element);
      return element;
    }
    detach() { return this.elements.splice(0); }
  }

  class Participant extends Emitter {
    constructor(id) {
      super();
      this.sid = this.identity = id;
      this.tracks = new Map();
      this.audioTracks = new Map();
      this.videoTracks = new Map();
    }
    add(media) {
      const track = new Track(media);
      const publication = { trackSid: media.id, kind: media.kind, isSubscribed: true, track };
      this.tracks.set(media.id, publication);
      (media.kind === 'audio' ? this.audioTracks : this.videoTracks).set(media.id, publication);
      return track;
    }
  }

  const longestSilence = 15000;

  class Room extends Emitter {
    constructor(name, stream) {
      super();
      this.name = name;
      this.state = 'connected';
      this.participants = new Map();
      this.peers = new Map();
      this.stream = stream;
      this.localParticipant = new Participant('me');
      stream.getTracks().forEach((media) => this.localParticipant.add(media));
    }
    signal(to, message) { kestrin.send({ room: { to, message } }); }

    peer(id) {
      if (this.peers.has(id)) return this.peers.get(id);
      const connection = new RTCPeerConnection({ iceServers: [] });
      const peer = { connection, candidates: [], lost: 0, wait: Promise.resolve() };
      this.peers.set(id, peer);
      this.stream.getTracks().forEach((media) => connection.addTrack(media, this.stream));
      const participant = new Participant(id);
      connection.ontrack = ({ track }) => {
        const subscribed = participant.add(track);
        if (this.participants.has(id)) {
          participant.emit('trackSubscribed', subscribed);
        } else {
          this.participants.set(id, participant);
          this.emit('participantConnected', participant);
        }
      };
      connection.onicecandidate = ({ candidate }) => {
        if (candidate) this.signal(id, { type: 'candidate', candidate: candidate.toJSON() });
      };
      connection.onconnectionstatechange = () => {
        clearTimeout(peer.lost);
        const state = connection.connectionState;
        if (state === 'failed') this.drop(id);
        if (state === 'disconnected') peer.lost = setTimeout(() => this.drop(id), longestSilence);
      };
      return peer;
    }
    drop(id) {
      const peer = this.peers.get(id);
      if (!peer) return;
      this.peers.delete(id);
      clearTimeout(peer.lost);
      peer.connection.close();
      const participant = this.participants.get(id);
      if (this.participants.delete(id)) this.emit('participantDisconnected', participant);
    }
    async offer(id) {
      const { connection } = this.peer(id);
      await connection.setLocalDescription(await connection.createOffer());
      this.signal(id, { type: 'description', description: connection.localDescription.toJSON() });
    }
    async describe(id, description) {
      const peer = this.peer(id);
      await peer.connection.setRemoteDescription(description);
      for (const early of peer.candidates.splice(0)) await peer.connection.addIceCandidate(early);
      if (description.type !== 'offer') return;
      await peer.connection.setLocalDescription(await peer.connection.createAnswer());
      this.signal(id,
        { type: 'description', description: peer.connection.localDescription.toJSON() });
    }
    async take(from, message) {
      if (message.type === 'join') {
        // Whoever was there before calls the newcomer; one who comes again begins anew.
        this.drop(from);
        await this.offer(from);
      } else if (message.type === 'leave') {
        this.drop(from);
      } else if (message.type === 'description') {
        await this.describe(from, message.description);
      } else if (message.type === 'candidate') {
        const peer = this.peer(from);
        if (peer.connection.remoteDescription) {
          await peer.connection.addIceCandidate(message.candidate);
        } else {
          peer.candidates.push(message.candidate);
        }
      }
    }
    /// For tests and for whoever looks at a call: what has come in so far, by kind.
    async received() {
      const sums = { audio: 0, video: 0, energy: 0 };
      for (const { connection } of this.peers.values()) {
        (await connection.getStats()).forEach((each) => {
          if (each.type !== 'inbound-rtp') return;
          sums[each.kind] += each.bytesReceived;
          sums.energy += each.totalAudioEnergy || 0;
        });
      }
      return sums;
    }
    disconnect() {
      if (this.state === 'disconnected') return this;
      this.state = 'disconnected';
      this.signal(null, { type: 'leave' });
      [...this.peers.keys()].forEach((id) => this.drop(id));
      this.stream.getTracks().forEach((media) => media.stop());
      this.emit('disconnected', this);
      return this;
    }
  }

  let joining = null;
  let room = null;
  let order = Promise.resolve();
  window.kestrinRoom = Object.freeze({
    /// {joined: true}, {error: text} or {messages: [{from, message}]}
    receive(news) {
      if (news.error && joining) joining.reject(new Error(news.error));
      if (news.joined && joining) joining.resolve();
      (news.messages || []).forEach(({ from, message }) => {
        // One after the other: a candidate must not overtake its description.
        order = order.then(() => room && room.state === 'connected' && room.take(from, message))
          .catch((error) => console.warn('Signal of the call: ' + error.message));
      });
    }
  });

  async function connect(token, options) {
    const stream = await navigator.mediaDevices.getUserMedia(
      { audio: options.audio, video: options.video });
    room = new Room(options.name, stream);
    await new Promise((resolve, reject) => {
      joining = { resolve, reject };
      kestrin.send({ room: { to: null, message: { type: 'join' } } });
    }).catch((error) => {
      stream.getTracks().forEach((media) => media.stop());
      throw error;
    });
    joining = null;
    return room;
  }
  window.Twilio = { Video: { connect } };
})();
)js";

}  // namespace kestrin
