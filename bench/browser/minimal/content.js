window.addEventListener("message", ({ data, ports: [page] }) => {
  if (!data.minimal) return;
  const background = chrome.runtime.connect({ name: data.minimal });
  background.onMessage.addListener((message) => page.postMessage(message));
  page.onmessage = ({ data }) => (data === "close" ? background.disconnect() : background.postMessage(data));
});
