// The least that joins a page to a native program.
chrome.runtime.onConnect.addListener((page) => {
  const host = chrome.runtime.connectNative(page.name);
  page.onMessage.addListener((message) => host.postMessage(message));
  host.onMessage.addListener((message) => page.postMessage(message));
  page.onDisconnect.addListener(() => host.disconnect());
});
