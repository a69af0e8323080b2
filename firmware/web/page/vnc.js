// The VNC client of Debian's novnc, connected to the KVM port of the service.

async function loadClient() {
  try {
    return (await import("./novnc/core/rfb.js")).default;
  } catch (problem) {
    throw new Error("the VNC client is not installed (Debian package novnc)", { cause: problem });
  }
}

export class VncView {
  // ended(text) is called when a connection that stood has ended.
  constructor(place, ended) {
    this.place = place;
    this.ended = ended;
  }

  // Resolves when the client shows the screen.
  async connect() {
    const Client = await loadClient();
    const address = new URL("vnc", location.href);
    address.protocol = "ws:";
    address.hash = "";
    const client = new Client(this.place, address.href, { shared: true, wsProtocols: ["binary"] });
    client.scaleViewport = true;
    client.focusOnClick = true;
    client.background = "transparent";
    await new Promise((resolve, reject) => {
      client.addEventListener("connect", resolve);
      client.addEventListener("disconnect", () => reject(new Error("the KVM port takes no viewer")));
      client.addEventListener("credentialsrequired", () => {
        reject(new Error("the server wants a password, which this client has not"));
        client.disconnect();
      });
    });
    this.client = client;
    client.focus();
    client.addEventListener("disconnect", (event) => {
      this.client = null;
      this.ended(event.detail.clean ? "closed" : "the connection was lost");
    });
  }

  disconnect() {
    this.client?.disconnect();
  }
}
