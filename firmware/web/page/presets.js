// Common scenarios: each is a function that plays one with `lab`, and may ask for values first.

// What the forms of the commands hold at first, by the name of the record.
export const DEFAULTS = {
  UserConsentQuestion: { Type: "1", Timeout: "60" },
  KvmPeer: { address: "127.0.0.1", port: "0" },
  IndicationDestination: { Host: "127.0.0.1", Uri: "/alerts", Port: "8080" },
  SafebootState: { state: "1" },
};

const CONSENT_SECONDS = 70;

const alone = (command) => (play) => play.send(command);
const provisioned = (status) => (play) => play.ask("set", { values: { ProvisionStatus: status } });

// {group, name, about, brief: true?, inputs: [{name, value}]?, needs: "pc"?, run(play, values)}; brief ones are a mere button.
export const PRESETS = [
  {
    group: "Remote KVM", name: "Consent, then KVM", about: "asks the person at the PC, and enables remote KVM after a yes",
    async run(play) {
      const answer = play.awaitRequest("WriteUserConsent", CONSENT_SECONDS);
      await play.send("MPM_ZEL_CMD_GET_KVM_CONSENT", { Type: 1, Timeout: 60 });
      play.report("the person at the PC is asked");
      const { fields } = await answer;
      if (fields.Consent !== 1) return play.report(`the answer is ${fields.Consent}: KVM stays off`);
      await play.send("MPM_ZEL_CMD_KVM_ENABLE_STATUS");
      return play.report("the answer is yes; KVM is enabled");
    },
  },
  { group: "Remote KVM", name: "Enable KVM", brief: true, about: "without a question", run: alone("MPM_ZEL_CMD_KVM_ENABLE_STATUS") },
  {
    group: "Remote KVM", name: "End the session", brief: true, about: "closes the viewer's connection",
    run: alone("MPM_ZEL_CMD_VNC_SOC_CLOSE"),
  },
  {
    group: "Power", name: "Off, graceful", brief: true, about: "as the power button of a console",
    run: alone("MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE"),
  },
  { group: "Power", name: "Off, hard", brief: true, about: "without asking programs to close", run: alone("MPM_ZEL_CMD_HOST_OFF_HARD") },
  { group: "Power", name: "Restart", brief: true, about: "as a reset by a console", run: alone("MPM_ZEL_CMD_HOST_CYCLE_SOFT") },
  { group: "Power", name: "Sleep", brief: true, about: "the service has Windows sleep", run: alone("MPM_ZEL_CMD_HOST_SLEEP_LIGHT") },
  { group: "Power", name: "Hibernate", brief: true, about: "the service has Windows hibernate", run: alone("MPM_ZEL_CMD_HOST_HIBERNATE") },
  {
    group: "Alerts", name: "Subscribe, then alert", about: "names the address of a console and posts one alert to it",
    inputs: [{ name: "host", value: "127.0.0.1" }, { name: "port", value: "8080" }, { name: "path", value: "/alerts" },
      { name: "text", value: "<alert/>" }],
    async run(play, { host, port, path, text }) {
      await play.send("MPM_ZEL_CMD_INDICATION_SUBSCRIBE", { Host: host, Uri: path, Port: Number(port), Secure: 0 });
      await play.send("MPM_ZEL_CMD_INDICATION_EVENT", { text });
      play.report("sent; the service's log shows whether the console has accepted it");
    },
  },
  {
    group: "Certificates", name: "Enrol a certificate", about: "makes a key and has the host obtain its certificate",
    inputs: [{ name: "host", value: "ca.example.com" }, { name: "authority", value: "Example CA" }, { name: "template", value: "Machine" },
      { name: "subject", value: "mpmsim" }],
    async run(play, values) {
      const answer = play.awaitRequest("WriteCSRResponse", 60);
      await play.ask("enrol", values);
      const { fields } = await answer;
      play.report(fields.SignedCertSize ? `a certificate of ${fields.SignedCertSize} bytes has come` : "the host got no certificate");
    },
  },
  {
    group: "Wi-Fi", name: "Change the network", about: "the PC joins a network that it has a profile of", needs: "pc",
    inputs: [{ name: "network", value: "office", choices: "networks" }],
    async run(play, { network }) {
      const sent = play.awaitRequest("WriteWiFiSyncInfo", 10);
      await play.pc({ command: "wlan", action: "join", network });
      try {
        const { fields } = await sent;
        play.report(`the firmware has the profile of ${fields.ssid}`);
      } catch {
        play.report("joined; no profile was reported, because it is open, not new, or not usable");
      }
    },
  },
  {
    group: "PC", name: "Suspend and resume", about: "the PC sleeps for three seconds", needs: "pc",
    async run(play) {
      await play.pc({ command: "control", code: "suspend" });
      play.report("asleep");
      await play.wait(3000);
      await play.pc({ command: "control", code: "resume-automatic" });
      await play.pc({ command: "control", code: "resume-suspend" });
      play.report("awake");
    },
  },
  {
    group: "Firmware", name: "Vanish for 3 s", about: "the driver is unloaded and loaded again",
    async run(play) {
      await play.ask("fault", { words: ["vanish"] });
      play.report("vanished");
      await play.wait(3000);
      await play.ask("fault", { words: ["come-back"] });
      play.report("back");
    },
  },
  {
    group: "Firmware", name: "Change the level", about: "the host sees it at its next start or report",
    inputs: [{ name: "level", value: "50", choices: "levels" }],
    run: (play, { level }) => play.ask("set", { values: { uVORKVersion: String(level) } }),
  },
  { group: "Firmware", name: "Not provisioned", brief: true, about: "ProvisionStatus 0", run: provisioned("0") },
  { group: "Firmware", name: "Provisioned", brief: true, about: "ProvisionStatus 2", run: provisioned("2") },
];
