// Shared page helpers: the message area, loading with data-loaded, saving with If-Match.
import { request, changes } from "./api.js";

const message = document.getElementById("message");

export const $ = (id) => document.getElementById(id);

export function showError(err) {
    message.className = "error";
    message.textContent = err instanceof Error ? err.message : String(err);
}

export function showOk(text) {
    message.className = "ok";
    message.textContent = text;
}

export function clearMessage() {
    message.className = "";
    message.textContent = "";
}

// "PlateIdOSD" -> "Plate Id", "Per_Brand_Type_OSD" -> "Per Brand Type", "vlprQfree" -> "Vlpr qfree".
export function labelOf(key) {
    const words = key.replace(/_?(OSD|Osd)$/, "").replace(/_/g, " ")
        .replace(/([a-z])([A-Z])/g, "$1 $2").replace(/([A-Z]+)([A-Z][a-z])/g, "$1 $2");
    return words.charAt(0).toUpperCase() + words.slice(1);
}

// Runs handler on both "input" and "change" of the element (typing, picking, pasting).
export function onEdit(element, handler) {
    element.addEventListener("input", handler);
    element.addEventListener("change", handler);
}

// Integer value of a number input, or null while it holds no number (e.g. just cleared).
export function intOf(input) {
    const value = input.value.trim();
    return value === "" || !Number.isFinite(Number(value)) ? null : Math.trunc(Number(value));
}

// Returns load(keepMessage): marks the section not loaded, fetches, shows, marks it loaded.
// A later load supersedes an earlier one still under way.
export function makeLoader(section, fetchData, show) {
    let latest = 0;
    return async (keepMessage = false) => {
        const token = ++latest;
        section.removeAttribute("data-loaded");
        if (!keepMessage) {
            clearMessage();
        }
        try {
            const result = await fetchData();
            if (token === latest) {
                show(result);
                section.dataset.loaded = "true";
            }
        } catch (err) {
            if (token === latest) {
                showError(err);
            }
        }
    };
}

// PUTs the members of `edited` that differ from `original`, guarded by the GET's ETag, then
// reloads. A 412 (someone else changed the record) reloads too, keeping its message.
async function saveChanges({ path, query, etag, original, edited, reload }) {
    const body = changes(original, edited);
    if (!Object.keys(body).length) {
        showOk("Nothing changed");
        return;
    }
    try {
        await request("PUT", path, { query, body, etag });
        showOk("Saved");
    } catch (err) {
        showError(err);
        if (err.status !== 412) {
            return;
        }
    }
    await reload(true);
}

// The wiring of a view of one record: a GET with query() when the view is first shown and on
// Load, its answer and query handed to show; Save puts what changed in current() (the state
// {query, etag, original, edited}) and reloads. Returns the view's activate.
export function recordView({ section, path, query, show, loadButton, saveButton, current }) {
    const load = makeLoader(section, async () => {
        const q = query();
        return [await request("GET", path, { query: q }), q];
    }, ([result, q]) => {
        show(result, q);
        saveButton.disabled = false;
    });
    loadButton.addEventListener("click", () => load());
    saveButton.addEventListener("click", () => {
        const state = current();
        if (state) {
            saveChanges({ path, ...state, reload: load });
        }
    });
    return once(() => load());
}

// fn, run on the first call only (a view loads itself when first shown).
export function once(fn) {
    let done = false;
    return () => {
        if (!done) {
            done = true;
            fn();
        }
    };
}
