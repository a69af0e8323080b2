// Plays the steps of a scenario: what a preset may do.

export class Player {
  constructor(lab, report) {
    this.lab = lab;
    this.report = report;
  }

  ask(verb, members) {
    return this.lab.request(verb, members);
  }

  // A command by its name, with fields of its record.
  send(name, fields) {
    const command = this.lab.store.catalogue.commands.find((each) => each.name === name);
    if (!command) throw new Error(`this firmware has no command ${name}`);
    return this.ask("send", { command: command.number, ...(fields ? { fields } : {}) });
  }

  pc(request) {
    return this.ask("pc", { request });
  }

  wait(milliseconds) {
    return new Promise((resolve) => { setTimeout(resolve, milliseconds); });
  }

  // The next request of the host with this name.
  awaitRequest(name, seconds) {
    const { store } = this.lab;
    const found = new Promise((resolve, reject) => {
      const stop = store.on("wire", ({ added }) => {
        const entry = added.find((each) => each.name === name && each.direction === "host");
        if (!entry) return;
        stop();
        resolve(entry);
      });
      setTimeout(() => {
        stop();
        reject(new Error(`no ${name} within ${seconds} s`));
      }, seconds * 1000);
    });
    found.catch(() => {}); // a preset that fails earlier waits for it no more
    return found;
  }
}
