// The intelligent functions the camera offers, one on/off line per function.
import { request } from "./api.js";
import { $, labelOf, makeLoader, once } from "./ui.js";

const ACRONYMS = { Its: "ITS", Vlpr: "VLPR", Vhd: "VHD", MMC: "MMC" };

function readable(key) {
    return labelOf(key).split(" ").map((word) => ACRONYMS[word] || word).join(" ");
}

function show(capability) {
    const list = $("capability-list");
    list.replaceChildren();
    let offered = 0;
    for (const [key, on] of Object.entries(capability)) {
        const item = document.createElement("li");
        item.dataset.key = key;
        item.dataset.on = String(Boolean(on));
        item.innerHTML = '<span class="flag"></span><span class="label"></span><code></code>';
        item.querySelector(".flag").textContent = on ? "on" : "off";
        item.querySelector(".label").textContent = readable(key);
        item.querySelector("code").textContent = key;
        list.append(item);
        offered += on ? 1 : 0;
    }
    $("capability-summary").textContent =
        `${offered} of ${list.children.length} functions offered.`;
}

const load = makeLoader($("view-capability"),
    async () => (await request("GET", "/api/v1/itgt/capability")).data, show);

export const activate = once(() => load());
