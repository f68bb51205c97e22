// Frame OSD: the item list, the style, the texts, and a live preview.
import { $, intOf, labelOf, onEdit, once, recordView } from "./ui.js";
import { ITEM_KEYS, TEXT_MEMBERS, drawPreview } from "./preview.js";

const PATH = "/api/v1/itgt/frame-osd";
const MAX_ITEMS = 37;
const ARRAYS = ["picOSDType", "spaceNum", "warpNum", "picOsdDetail"];
const NEW_ITEM = [10, 1, 0, { prefixEnable: 0, prefixContent: "" }]; // a custom text item

// Plain fields: element id, path of the member in the record, kind.
const FIELDS = [
    ["osd-font-size", ["picOSDInfo", "fontSize"]],
    ["osd-font-size-ext", ["picOSDInfo", "fontSizeExt"]],
    ["osd-fg-color", ["picOSDInfo", "fgColor"], "color"],
    ["osd-fg-alpha", ["picOSDInfo", "fgAlpha"]],
    ["osd-bg-color", ["picOSDInfo", "bgColor"], "color"],
    ["osd-bg-alpha", ["picOSDInfo", "bgAlpha"]],
    ["osd-location", ["picOSDInfo", "osdLocation"]],
    ["osd-security-pos", ["picOSDInfo", "securityCodeInfo", "securityCodePos"]],
    ["osd-time-type", ["timeOSD", "type"]],
    ["osd-time-ms", ["timeOSD", "toMs"]],
    ["osd-live", ["enableLiveOSD"]],
    ["osd-dir-para", ["dirOSDParaEn"]],
];

const section = $("view-frame-osd");
const list = $("osd-items");
const template = $("osd-item-template").content.firstElementChild;
let state = null; // {query, etag, original, edited}

for (const [i, key] of ITEM_KEYS.entries()) {
    template.querySelector(".item-type").add(new Option(`${i} ${labelOf(key)}`, i));
}

const info = () => state.edited.picOSDInfo;
const draw = () => drawPreview($("osd-preview"), state && state.edited);
const hex = (color) => "#" + (Number(color) & 0xffffff).toString(16).padStart(6, "0");

function getPath(record, path) {
    return path.reduce((node, key) => (node == null ? undefined : node[key]), record);
}

function setPath(record, path, value) {
    const last = path.length - 1;
    const parent = path.slice(0, last).reduce((node, key) => (node[key] ??= {}), record);
    parent[path[last]] = value;
}

// The content box of a row: the text member its type shows, or disabled when it has none.
function fillContent(row, type) {
    const input = row.querySelector(".item-content");
    const member = TEXT_MEMBERS[type];
    input.disabled = !member;
    input.value = member ? getPath(state.edited, [member, "osdContent"]) || "" : "";
    input.placeholder = member ? member : type === 0 ? "(current time)" : "(no text)";
}

function renderItems() {
    const { picOSDType, spaceNum, warpNum, picOsdDetail } = info();
    const rows = picOSDType.map((type, i) => {
        const row = template.cloneNode(true);
        const select = row.querySelector(".item-type");
        if (!ITEM_KEYS[type]) {
            select.add(new Option(`${type} (unknown)`, type));
        }
        row.dataset.index = i;
        row.querySelector(".item-num").textContent = i + 1;
        select.value = type;
        row.querySelector(".item-prefix-enable").checked = picOsdDetail[i].prefixEnable !== 0;
        row.querySelector(".item-prefix").value = picOsdDetail[i].prefixContent;
        row.querySelector(".item-space").value = spaceNum[i];
        row.querySelector(".item-warp").value = warpNum[i];
        row.querySelector(".item-up").disabled = i === 0;
        row.querySelector(".item-down").disabled = i === picOSDType.length - 1;
        fillContent(row, type);
        return row;
    });
    list.replaceChildren(...rows);
    $("osd-add").disabled = picOSDType.length >= MAX_ITEMS;
    draw();
}

function show({ data, etag }, query) {
    const hasInfo = data.picOSDInfo !== null && typeof data.picOSDInfo === "object";
    if (hasInfo) {
        for (const name of ARRAYS) {
            data.picOSDInfo[name] ??= []; // a record with no items carries no arrays
        }
    }
    state = { query, etag, original: data, edited: structuredClone(data) };
    $("osd-null-note").hidden = hasInfo;
    $("osd-info").disabled = !hasInfo;
    for (const [id, path, kind] of FIELDS) {
        const input = $(id);
        const value = getPath(data, path);
        input.disabled = path[0] === "picOSDInfo" && !hasInfo;
        input.value = kind === "color" ? hex(value) : value ?? "";
    }
    if (hasInfo) {
        renderItems();
    } else {
        list.replaceChildren();
        draw();
    }
}

// Rewrites the four item arrays through `edit` (which gets one list per array) and the count.
function editItems(edit) {
    const lists = ARRAYS.map((name) => info()[name]);
    edit(lists);
    info().picOSDNum = lists[0].length;
    renderItems();
}

function moveItem(from, to) {
    editItems((lists) => lists.forEach((items) => items.splice(to, 0, ...items.splice(from, 1))));
}

for (const [id, path, kind] of FIELDS) {
    onEdit($(id), (event) => {
        const value = kind === "color" ? parseInt(event.target.value.slice(1), 16) : intOf(event.target);
        if (state && value !== null && !Number.isNaN(value)) {
            setPath(state.edited, path, value);
            draw();
        }
    });
}

// One listener for the edits of every row.
function onItemInput(event) {
    const row = event.target.closest("[data-index]");
    if (!state || !row) {
        return;
    }
    const i = Number(row.dataset.index);
    const target = event.target;
    const detail = info().picOsdDetail[i];
    if (target.matches(".item-type")) {
        info().picOSDType[i] = Number(target.value);
        fillContent(row, info().picOSDType[i]);
    } else if (target.matches(".item-prefix-enable")) {
        detail.prefixEnable = target.checked ? 1 : 0;
    } else if (target.matches(".item-prefix")) {
        detail.prefixContent = target.value;
    } else if (target.matches(".item-content")) {
        const member = TEXT_MEMBERS[info().picOSDType[i]];
        setPath(state.edited, [member, "osdContent"], target.value);
        for (const other of list.children) {
            if (other !== row && TEXT_MEMBERS[info().picOSDType[other.dataset.index]] === member) {
                other.querySelector(".item-content").value = target.value;
            }
        }
    } else if (target.matches(".item-space, .item-warp")) {
        const value = intOf(target);
        if (value === null || value < 0) {
            return;
        }
        info()[target.matches(".item-space") ? "spaceNum" : "warpNum"][i] = value;
    }
    draw();
}

onEdit(list, onItemInput);

list.addEventListener("click", (event) => {
    const button = event.target.closest("button");
    const row = event.target.closest("[data-index]");
    if (!state || !button || !row) {
        return;
    }
    const i = Number(row.dataset.index);
    if (button.matches(".item-up")) {
        moveItem(i, i - 1);
    } else if (button.matches(".item-down")) {
        moveItem(i, i + 1);
    } else if (button.matches(".item-remove")) {
        editItems((lists) => lists.forEach((items) => items.splice(i, 1)));
    }
});

$("osd-add").addEventListener("click", () => {
    if (state && info() && info().picOSDType.length < MAX_ITEMS) {
        editItems((lists) => lists.forEach((items, k) => items.push(structuredClone(NEW_ITEM[k]))));
    }
});


// The time item ticks while the view is on screen.
setInterval(() => {
    if (state && !section.hidden) {
        draw();
    }
}, 1000);

const activateView = recordView({
    section, path: PATH, show, loadButton: $("osd-load"), saveButton: $("osd-save"),
    query: () => ({
        ChannelId: $("osd-channel").value,
        OverlayPicType: $("osd-pictype").value,
        BusinessType: $("osd-business").value,
    }),
    current: () => state,
});

export const activate = once(() => {
    draw();
    activateView();
});
