// Which OSD items each business can overlay on each picture kind, as a yes/no grid.
import { request } from "./api.js";
import { $, labelOf, makeLoader, once } from "./ui.js";

const KINDS = ["original", "synthesis", "feature"];

function cell(tag, text, attributes = {}) {
    const element = document.createElement(tag);
    element.textContent = text;
    for (const [name, value] of Object.entries(attributes)) {
        element.setAttribute(name, value);
    }
    return element;
}

function show(ability) {
    const businesses = Object.keys(ability);
    const items = businesses.length ? Object.keys(ability[businesses[0]]) : [];
    const head = document.createElement("thead");
    const top = head.insertRow();
    const sub = head.insertRow();
    top.append(cell("th", "OSD item", { rowspan: 2 }));
    for (const business of businesses) {
        top.append(cell("th", business, { colspan: KINDS.length, class: "group" }));
        KINDS.forEach((kind, i) => sub.append(cell("th", labelOf(kind), i ? {} : { class: "group" })));
    }
    const body = document.createElement("tbody");
    for (const item of items) {
        const row = body.insertRow();
        row.append(cell("th", labelOf(item), { title: item }));
        for (const business of businesses) {
            KINDS.forEach((kind, i) => {
                const yes = Boolean(ability[business][item] && ability[business][item][kind]);
                row.append(cell("td", yes ? "yes" : "no", {
                    "data-item": item, "data-business": business, "data-kind": kind,
                    class: (yes ? "yes" : "no") + (i ? "" : " group"),
                }));
            });
        }
    }
    $("osd-grid").replaceChildren(head, body);
}

const load = makeLoader($("view-osd-capability"), async () => {
    const query = { ChannelId: $("osd-cap-channel").value };
    return (await request("GET", "/api/v1/itgt/osd-capability", { query })).data;
}, show);

$("osd-cap-load").addEventListener("click", () => load());

export const activate = once(() => load());
