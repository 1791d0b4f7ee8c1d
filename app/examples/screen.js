// vorel --machine app/machines/screen.json app/examples/screen.js on|off [PORT]: switches a screen by a small protocol.
// A command is four letters, four digits and a carriage return; the screen answers OK or ERR. One that sleeps may miss
// the first command, so each is sent up to three times.
"use strict";

const { classes, interfaces } = Components;
const [wanted = "on", name = "COM1"] = arguments;
const answerTime = 300; // ms
const tries = 3;

const mainThread =
  classes["@mozilla.org/thread-manager;1"].getService(interfaces.nsIThreadManager).mainThread;

/** A line of text over a serial port, one command at a time. */
class ScreenLine {
  /** @param {nsISystemAdapterSerial} port */
  constructor(port) {
    this.port = port;
    port.mode = 2; // nothing waits on the main thread
    port.setParameters(3, 9600, 8, 256, 0, 0);
    port.open();
    // Held as long as the port is used: a stream closes with its last user.
    const input = port.inputStream, output = port.outputStream;
    if (!input || !output) throw new Error("the port has no streams");
    this.input = input.QueryInterface(interfaces.nsIBinaryInputStream);
    this.waiter = input;
    this.output = output;
    this.received = "";
  }

  close() {
    this.port.close();
  }

  /**
   * The answer to a command, without its carriage return.
   * @param {string} command
   * @returns {Promise<string>}
   */
  ask(command) {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error("no answer to " + command)), answerTime);
      /** @returns {void} */
      const listen = () => this.waiter.asyncWait({
        onInputStreamReady: () => {
          const count = this.input.available();
          if (count > 0) this.received += this.input.readBytes(count);
          const end = this.received.indexOf("\r");
          if (end < 0) return listen();
          clearTimeout(timer);
          const answer = this.received.slice(0, end);
          this.received = this.received.slice(end + 1);
          resolve(answer);
        },
      }, 0, 0, mainThread);
      this.received = "";
      listen();
      this.output.write(command + "\r", command.length + 1);
    });
  }

  /**
   * The same, again when there is no answer.
   * @param {string} command
   * @returns {Promise<string>}
   */
  async command(command) {
    for (let attempt = 1; ; ++attempt) {
      try {
        return await this.ask(command);
      } catch (error) {
        if (attempt === tries) throw error;
        console.log("no answer, trying again");
      }
    }
  }
}

async function main() {
  /** @type {nsISystemAdapterSerial[]} */
  const ports = Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterSerial) ?? []);
  const port = ports.find((candidate) => candidate.sysPath === name);
  if (!port) throw new Error("there is no port " + name);
  const line = new ScreenLine(port);
  try {
    const answer = await line.command(wanted === "on" ? "POWR0001" : "POWR0000");
    console.log("screen " + wanted + ": " + answer);
    return answer === "OK" ? 0 : 1;
  } finally {
    line.close();
  }
}

main().then(quit, (error) => {
  console.error(String(error.message ?? error));
  quit(1);
});
