// System back language of a channel.
import { $, intOf, onEdit, recordView } from "./ui.js";

const PATH = "/api/v1/itgt/sys-back-language";
const NAMES = ["Chinese", "English", "Chinese (Taiwan)"]; // the simulator's numbering

let state = null; // {query, etag, original, edited}

function showName(mode) {
    $("language-name").textContent = mode === null ? "" : NAMES[mode] || "not a known language";
}

function show({ data, etag }, query) {
    state = { query, etag, original: data, edited: structuredClone(data) };
    $("language-mode").value = data.mode;
    showName(data.mode);
}

onEdit($("language-mode"), (event) => {
    const mode = intOf(event.target);
    showName(mode);
    if (state && mode !== null) {
        state.edited.mode = mode;
    }
});

export const activate = recordView({
    section: $("view-language"), path: PATH,
    query: () => ({ ChannelId: $("language-channel").value }), show,
    loadButton: $("language-load"), saveButton: $("language-save"), current: () => state,
});
