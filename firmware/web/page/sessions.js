// The consoles' sessions, as the requests of the host describe them.

const CONNECTED = 0xFFFF; // the marker of a record that names a peer
const NAMES = { 664: "DASH", 22: "KVM" };

export class Sessions {
  constructor() {
    this.byPort = new Map();
  }

  // A session has `begun`, was `closed` by the firmware, and has `ended`: the times of these. Returns whether something
  // has changed.
  take(entries) {
    let changed = false;
    for (const { name, fields, time, fault } of entries) {
      if (fault) continue;
      if (name === "WriteIPCompleteInformation" && fields.PeerMarker === CONNECTED && NAMES[fields.Port])
        this.byPort.set(fields.Port, { peer: `${fields.PeerAddress}:${fields.PeerPort}`, begun: time });
      else if (name === "WriteCloseSocketcmd") this.end(fields.port, time);
      else if (name === "MPM_ZEL_CMD_VNC_SOC_CLOSE" && this.byPort.has(22)) this.byPort.get(22).closed = time;
      else if (name === "gone") this.endAll(time);
      else continue;
      changed = true;
    }
    return changed;
  }

  end(port, time) {
    const session = this.byPort.get(port);
    if (session && !session.ended) session.ended = time;
  }

  // The host is gone, and with it what it had.
  endAll(time) {
    for (const session of this.byPort.values()) Object.assign(session, { closed: time, ended: session.ended ?? time });
  }

  of(name) {
    return this.list().find((session) => session.name === name);
  }

  list() {
    return Object.entries(NAMES).map(([port, name]) => ({ name, port: Number(port), ...this.byPort.get(Number(port)) }));
  }
}
