// Does what the test driver asks, one command at a time: connect to the host, post messages,
// disconnect. Tells the driver when it disconnected and when the host closed the port.
const driver = "DRIVER_URL"; // filled in by the driver when it copies the extension
let port;

// The time is the browser's, since a report may take a while to reach the driver.
function report(event) {
    const body = JSON.stringify({ event, at: Date.now() });
    return fetch(`${driver}/event`, { method: "POST", body });
}

function run(command) {
    if (command.connect) {
        port = chrome.runtime.connectNative("com.quorvel.nativemessagehost");
        port.onDisconnect.addListener(() => report("closed"));
    }
    for (const message of command.post ?? []) {
        port.postMessage(message);
    }
    if (command.disconnect) {
        port.disconnect();
        report("disconnected");
    }
}

(async () => {
    for (;;) {
        try {
            run(await (await fetch(`${driver}/command`)).json());
        } catch (error) {
            // A command that failed is reported; when the driver is gone, wait to be stopped.
            const pause = () => new Promise((resolve) => setTimeout(resolve, 500));
            await report(`error: ${error}`).catch(pause);
        }
    }
})();
