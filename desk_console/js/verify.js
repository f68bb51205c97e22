// Security code verification of a JPEG snapshot.
import { request } from "./api.js";
import { $, clearMessage, showError } from "./ui.js";

const PASSED = 4502;
const FAILED = 4501;

const section = $("view-verify");
const picture = $("verify-picture");

let pictureUrl = null;

function showPicture(file) {
    if (pictureUrl) {
        URL.revokeObjectURL(pictureUrl);
    }
    pictureUrl = file ? URL.createObjectURL(file) : null;
    if (pictureUrl) {
        picture.src = pictureUrl;
    } else {
        picture.removeAttribute("src");
    }
    picture.alt = file ? file.name : "";
}

function verdict(code) {
    return `${code} ${code === PASSED ? "passed" : code === FAILED ? "failed" : "did not pass"}`;
}

$("verify-file").addEventListener("change", (event) => showPicture(event.target.files[0]));

$("verify-send").addEventListener("click", async () => {
    const file = $("verify-file").files[0];
    const result = $("verify-result");
    section.removeAttribute("data-loaded");
    clearMessage();
    result.textContent = "none yet";
    result.className = "";
    if (!file) {
        showError("Pick a JPEG file first");
        return;
    }
    showPicture(file);
    try {
        const query = { ChannelId: $("verify-channel").value };
        const { data } = await request("POST", "/api/v1/itgt/security-code-verify",
            { query, body: file, type: "image/jpeg" });
        result.textContent = verdict(data.verifyResult);
        result.className = data.verifyResult === PASSED ? "yes" : "no";
        section.dataset.loaded = "true";
    } catch (err) {
        showError(err);
    }
});

export function activate() {}
