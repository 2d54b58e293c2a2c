// Does what the test driver asks, one command at a time: connect to the host, post messages,
// disconnect. Tells the driver when it disconnected and when the host closed the port.
const driver = "DRIVER_URL";
let port;

function report(event) {
    return fetch(`${driver}/event`, { method: "POST", body: event });
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
            // Or the driver has gone: then wait for the browser to be stopped.
            await report(`error: ${error}`).catch(() => new Promise((resolve) => setTimeout(resolve, 500)));
        }
    }
})();
