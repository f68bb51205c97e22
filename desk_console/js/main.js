// Navigation: one view on screen at a time, chosen by the location's hash.
import { origin } from "./api.js";
import { clearMessage, showError } from "./ui.js";
import * as capability from "./capability.js";
import * as osdCapability from "./osd-capability.js";
import * as detector from "./detector.js";
import * as frameOsd from "./frame-osd.js";
import * as language from "./language.js";
import * as verify from "./verify.js";

const VIEWS = {
    capability, "osd-capability": osdCapability, detector, "frame-osd": frameOsd, language, verify,
};

function route() {
    const wanted = location.hash.slice(1);
    const name = Object.hasOwn(VIEWS, wanted) ? wanted : "capability";
    for (const key of Object.keys(VIEWS)) {
        document.getElementById(`view-${key}`).hidden = key !== name;
        document.querySelector(`a[data-view="${key}"]`).classList.toggle("active", key === name);
    }
    clearMessage();
    VIEWS[name].activate();
}

// Nothing goes unreported: a fault that escapes a view still reaches the message area.
window.addEventListener("error", (event) => showError(event.message));
window.addEventListener("unhandledrejection", (event) => showError(event.reason));

if (origin !== location.origin) {
    document.getElementById("api-origin").textContent = `API at ${origin}`;
}
window.addEventListener("hashchange", route);
route();
