// System back language of a channel.
import { request } from "./api.js";
import { $, intOf, makeLoader, onEdit, once, saveChanges } from "./ui.js";

const PATH = "/api/v1/itgt/sys-back-language";
const NAMES = ["Chinese", "English", "Chinese (Taiwan)"]; // the simulator's numbering

let state = null; // {query, etag, original, edited}

function showName(mode) {
    $("language-name").textContent = mode === null ? "" : NAMES[mode] || "not a known language";
}

const load = makeLoader($("view-language"), async () => {
    const query = { ChannelId: $("language-channel").value };
    return [await request("GET", PATH, { query }), query];
}, ([{ data, etag }, query]) => {
    state = { query, etag, original: data, edited: structuredClone(data) };
    $("language-mode").value = data.mode;
    showName(data.mode);
    $("language-save").disabled = false;
});

onEdit($("language-mode"), (event) => {
    const mode = intOf(event.target);
    showName(mode);
    if (state && mode !== null) {
        state.edited.mode = mode;
    }
});

$("language-load").addEventListener("click", () => load());
$("language-save").addEventListener("click", () => {
    if (state) {
        saveChanges({ path: PATH, ...state, reload: load });
    }
});

export const activate = once(() => load());
