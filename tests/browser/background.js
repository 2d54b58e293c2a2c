// Does what the test driver asks, one command at a time: connect to the host, post messages,
// disconnect. Tells the driver when it disconnected and when the host closed the port, by the
// browser's clock, since a report may take a while to reach the driver.
const driver = "DRIVER_URL"; // filled in by the driver when it copies the extension
let port;

const report = (event, error = null) =>
    fetch(driver, { method: "POST", body: JSON.stringify({ event, error, at: Date.now() }) });

function run({ connect, post = [], disconnect }) {
    if (connect) {
        port = chrome.runtime.connectNative("com.quorvel.nativemessagehost");
        // Chromium gives the reason a port closed in runtime.lastError, Firefox in port.error.
        port.onDisconnect.addListener((closed) => {
            const error = chrome.runtime.lastError || closed.error;
            report("closed", error ? error.message : null);
        });
    }
    post.forEach((message) => port.postMessage(message));
    if (disconnect) {
        port.disconnect();
        report("disconnected");
    }
}

// A command that failed is reported; once the driver is gone, the extension waits to be stopped.
function next() {
    fetch(driver)
        .then((answer) => answer.json())
        .then(run)
        .catch((error) => report(`error: ${error}`))
        .catch(() => new Promise((resolve) => setTimeout(resolve, 500)))
        .then(next);
}
next();
