// The state of the page. Panels read its members and follow its topics: "wire" and "log" with how many entries were
// added and removed, "host", "screen", "state", "greeting", "sessions".

import { Sessions } from "./sessions.js";

export const KEPT = 10000;

// The newest entries, oldest first.
export class Ring {
  constructor(limit = KEPT) {
    this.limit = limit;
    this.clear();
  }

  clear() {
    this.items = [];
    this.head = 0;
  }

  get length() {
    return this.items.length - this.head;
  }

  at(index) {
    return this.items[this.head + index];
  }

  // Returns how many old entries made room.
  push(items) {
    for (const item of items) this.items.push(item);
    const excess = Math.max(this.length - this.limit, 0);
    this.remove(excess);
    return excess;
  }

  remove(count) {
    this.head += count;
    if (this.head < this.limit) return;
    this.items = this.items.slice(this.head);
    this.head = 0;
  }

  *[Symbol.iterator]() {
    for (let index = this.head; index < this.items.length; ++index) yield this.items[index];
  }
}

// The entries of a Ring that a function accepts, kept up to date with it.
export class Selection {
  constructor(source, accepts) {
    this.source = source;
    this.list = new Ring(source.limit);
    this.change(accepts);
  }

  change(accepts) {
    this.accepts = accepts;
    this.list.clear();
    this.list.push([...this.source].filter(accepts));
  }

  // After entries were added to the source; returns how many of its own it has dropped.
  add(added) {
    const excess = this.list.push(added.filter(this.accepts));
    const first = this.source.length ? this.source.at(0).key : Infinity;
    let old = 0;
    while (old < this.list.length && this.list.at(old).key < first) ++old;
    this.list.remove(old);
    return excess + old;
  }
}

export class Store {
  constructor() {
    this.wire = new Ring();
    this.log = new Ring();
    this.sessions = new Sessions();
    this.catalogue = { commands: [], requests: [], levels: [] };
    this.features = {};
    this.pcHelp = null;
    this.state = {};
    this.host = null;
    this.screen = null;
    this.lastSerial = { wire: 0, log: 0 };
    this.lastKey = 0;
    this.followers = new Map();
  }

  // Returns a function that ends it.
  on(topic, follower) {
    if (!this.followers.has(topic)) this.followers.set(topic, new Set());
    this.followers.get(topic).add(follower);
    return () => this.followers.get(topic).delete(follower);
  }

  emit(topic, detail) {
    for (const follower of this.followers.get(topic) ?? []) follower(detail);
  }

  // The members of hello.
  progress() {
    return this.lastSerial.wire ? { since: this.lastSerial.wire } : {};
  }

  greet(greeting) {
    Object.assign(this, {
      version: greeting.version, catalogue: greeting.catalogue, features: greeting.features ?? {}, pcHelp: greeting.pcHelp,
    });
    this.emit("greeting");
  }

  take(message) {
    for (const topic of ["wire", "log"]) {
      const dropped = message.dropped?.[topic] ?? 0;
      if (dropped || message[topic]?.length) this.add(topic, message[topic] ?? [], dropped);
    }
    for (const topic of ["host", "screen"]) {
      if (message[topic] === undefined) continue;
      this[topic] = message[topic];
      this.emit(topic);
    }
    if (message.state) {
      Object.assign(this.state, message.state);
      this.emit("state");
    }
  }

  add(topic, entries, dropped) {
    const added = [];
    if (dropped) added.push({ key: ++this.lastKey, dropped, name: "", time: null });
    for (const entry of entries) {
      if (entry.serial <= this.lastSerial[topic]) continue; // known from before a reconnection
      this.lastSerial[topic] = entry.serial;
      entry.key = ++this.lastKey;
      added.push(entry);
    }
    const removed = this[topic].push(added);
    if (topic === "wire" && this.sessions.take(added)) this.emit("sessions");
    this.emit(topic, { added, removed });
  }
}
