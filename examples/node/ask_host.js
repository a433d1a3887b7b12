// A host program in Node: prints every push-scan request and answers it, through a child process.
//
//   node ask_host.js [PATH OF quorin-host]
//
// docs/ask.md says what the lines mean.  It ends with Ctrl-C.
"use strict";

const { spawn } = require("child_process");
const readline = require("readline");

const host = spawn(process.argv[2] || "quorin-host", ["--ask"], { stdio: ["pipe", "pipe", "inherit"] });
host.on("error", (error) => {
  console.error(`quorin-host cannot be started: ${error.message}`);
  process.exitCode = 3;
});
host.on("exit", (code) => { process.exitCode = process.exitCode || code || 0; });
// A host that has ended takes no words any more; its exit tells of it.
host.stdin.on("error", () => {});
const tell = (word) => host.stdin.write(JSON.stringify(word) + "\n");

readline.createInterface({ input: host.stdout }).on("line", (line) => {
  const event = JSON.parse(line);
  switch (event.event) {
    case "started":
      if (event.ask !== 1) throw new Error(`contract ${event.ask} is not known here`);
      console.log(event.waiting ? "waits for an address" : `serves as ${event.pcName}`);
      break;
    case "peer":  // a scanner that looks for this PC by its product: may it find it?
      tell({ do: "filter", number: event.number, answer: true });
      break;
    case "request":
      console.log(`request ${event.number} (${event.exchange}): ${JSON.stringify(event.driverName)}`);
      if (event.exchange === "start") tell({ do: "send", number: event.number, text: "ready" });
      tell({ do: "answer", number: event.number, code: "OK" });
      break;
    case "mistake":
      console.error(`line ${event.line} was not understood: ${event.reason}`);
      break;
  }
});
process.on("SIGINT", () => tell({ do: "stop" }));
process.on("SIGTERM", () => tell({ do: "stop" }));
