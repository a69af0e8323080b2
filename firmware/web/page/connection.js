// The page's one WebSocket. It opens again by itself, with growing pauses, and asks only for what it has missed.

const FIRST_PAUSE = 250, LONGEST_PAUSE = 5000; // milliseconds
const ANSWER_PATIENCE = 60000;

// Its events: "open" (detail: the answer to hello), "message" (an object), "frame" (an ArrayBuffer),
// "state" (see `state` and `reason`).
export class Connection extends EventTarget {
  constructor(url, { progress }) {
    super();
    this.url = url;
    this.progress = progress; // returns what this page has got so far, the members of hello
    this.state = "connecting"; // or "open", "waiting"
    this.reason = "";
    this.retryAt = 0;
    this.pause = FIRST_PAUSE;
    this.requests = new Map();
    this.lastId = 0;
  }

  start() {
    clearTimeout(this.timer);
    this.change("connecting");
    const socket = new WebSocket(this.url, "zel-lab");
    socket.binaryType = "arraybuffer";
    this.socket = socket;
    this.taken = false;
    socket.onopen = () => {
      this.taken = true;
      this.greet();
    };
    socket.onmessage = (event) => this.take(event.data);
    socket.onclose = () => this.lose();
  }

  async greet() {
    try {
      const greeting = await this.request("hello", this.progress());
      this.pause = FIRST_PAUSE;
      this.change("open");
      this.dispatchEvent(new CustomEvent("open", { detail: greeting }));
    } catch (problem) {
      this.reason = problem.message;
      this.socket.close();
    }
  }

  take(data) {
    if (typeof data !== "string") return this.dispatchEvent(new CustomEvent("frame", { detail: data }));
    const message = JSON.parse(data);
    if (message.id === undefined) return this.dispatchEvent(new CustomEvent("message", { detail: message }));
    const request = this.requests.get(message.id);
    if (!request) return;
    this.requests.delete(message.id);
    clearTimeout(request.timer);
    if (message.ok) request.resolve(message.result);
    else request.reject(new Error(message.error || "the firmware refused without a reason"));
  }

  lose() {
    for (const request of this.requests.values()) {
      clearTimeout(request.timer);
      request.reject(new Error("the connection to the firmware is lost"));
    }
    this.requests.clear();
    this.retryAt = Date.now() + this.pause;
    this.timer = setTimeout(() => this.start(), this.pause);
    this.pause = Math.min(this.pause * 2, LONGEST_PAUSE);
    this.change("waiting");
    this.findReason();
  }

  // A WebSocket does not say why it was refused; an ordinary request for this page does.
  async findReason() {
    try {
      const answer = await fetch(".", { method: "HEAD", cache: "no-store" });
      if (!answer.ok) this.reason = "the firmware was started again and has another address: open the URL that it printed";
      else if (!this.taken) this.reason = "the firmware takes no further page now";
    } catch {
      this.reason = "no firmware answers at this address";
    }
    this.change(this.state);
  }

  change(state) {
    this.state = state;
    if (state === "open") this.reason = "";
    this.dispatchEvent(new Event("state"));
  }

  // Resolves to the result, and rejects with an Error whose message is a sentence.
  request(verb, members = {}) {
    if (this.socket?.readyState !== WebSocket.OPEN) return Promise.reject(new Error("not connected to the firmware"));
    const id = ++this.lastId;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.requests.delete(id);
        reject(new Error("no answer within a minute"));
      }, ANSWER_PATIENCE);
      this.requests.set(id, { resolve, reject, timer });
      this.socket.send(JSON.stringify({ id, do: verb, ...members }));
    });
  }
}
