// Video vehicle detector: the switch and the region, drawn over a 1920x1080 frame.
import { $, intOf, onEdit, recordView } from "./ui.js";

const PATH = "/api/v1/itgt/video-vehicle-detector";
const W = 1920;
const H = 1080;
const MIN = 16; // smallest region a drag leaves, in picture pixels
const KEYS = ["x", "y", "width", "height"];

const section = $("view-detector");
const frame = $("detector-frame");
const box = $("detector-rect");
let state = null; // {query, etag, original, edited}
let drag = null;

const clamp = (v, low, high) => Math.min(Math.max(v, low), high);

function drawRect() {
    const r = state.edited.rectInfo;
    box.style.left = `${(r.x / W) * 100}%`;
    box.style.top = `${(r.y / H) * 100}%`;
    box.style.width = `${(Math.max(r.width, 0) / W) * 100}%`;
    box.style.height = `${(Math.max(r.height, 0) / H) * 100}%`;
    box.classList.toggle("off", !state.edited.enable);
}

function fillInputs() {
    for (const key of KEYS) {
        $(`detector-${key}`).value = state.edited.rectInfo[key];
    }
}

function show({ data, etag }, query) {
    state = { query, etag, original: data, edited: structuredClone(data) };
    $("detector-enable").checked = data.enable !== 0;
    fillInputs();
    drawRect();
}

// The region as it starts a drag: fitted into the frame.
function fitted(r) {
    const width = clamp(r.width, MIN, W);
    const height = clamp(r.height, MIN, H);
    return { x: clamp(r.x, 0, W - width), y: clamp(r.y, 0, H - height), width, height };
}

// Moves the edges named by `corner` ("nw", "se", ...) or, without one, the whole region.
function dragged(from, corner, dx, dy) {
    if (!corner) {
        return { ...from, x: clamp(from.x + dx, 0, W - from.width), y: clamp(from.y + dy, 0, H - from.height) };
    }
    let [left, top, right, bottom] = [from.x, from.y, from.x + from.width, from.y + from.height];
    if (corner.includes("w")) left = clamp(left + dx, 0, right - MIN);
    if (corner.includes("e")) right = clamp(right + dx, left + MIN, W);
    if (corner.includes("n")) top = clamp(top + dy, 0, bottom - MIN);
    if (corner.includes("s")) bottom = clamp(bottom + dy, top + MIN, H);
    return { x: left, y: top, width: right - left, height: bottom - top };
}

box.addEventListener("mousedown", (event) => {
    if (!state || event.button !== 0) {
        return;
    }
    event.preventDefault();
    const handle = event.target.closest(".handle");
    drag = {
        corner: handle ? handle.dataset.corner : null,
        x: event.clientX, y: event.clientY, from: fitted(state.edited.rectInfo),
    };
});

document.addEventListener("mousemove", (event) => {
    if (!drag) {
        return;
    }
    const scale = frame.getBoundingClientRect().width / W;
    const dx = Math.round((event.clientX - drag.x) / scale);
    const dy = Math.round((event.clientY - drag.y) / scale);
    Object.assign(state.edited.rectInfo, dragged(drag.from, drag.corner, dx, dy));
    fillInputs();
    drawRect();
});

document.addEventListener("mouseup", () => {
    drag = null;
});

for (const key of KEYS) {
    onEdit($(`detector-${key}`), (event) => {
        const value = intOf(event.target);
        if (state && value !== null) {
            state.edited.rectInfo[key] = value;
            drawRect();
        }
    });
}

onEdit($("detector-enable"), (event) => {
    if (state) {
        // Switched back on, the detector keeps the value it had when it was on.
        state.edited.enable = event.target.checked ? state.original.enable || 1 : 0;
        drawRect();
    }
});

export const activate = recordView({
    section, path: PATH, query: () => ({ ChannelId: $("detector-channel").value }), show,
    loadButton: $("detector-load"), saveButton: $("detector-save"), current: () => state,
});
