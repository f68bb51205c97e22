// Requests to the ITGT REST API: base origin, ETag / If-Match, and readable errors.

// "?api=http://host:port" sends every request to that origin; otherwise this page's own.
function apiOrigin() {
    const text = new URLSearchParams(location.search).get("api");
    if (!text) {
        return location.origin;
    }
    try {
        return new URL(text).origin;
    } catch {
        return location.origin;
    }
}

export const origin = apiOrigin();
const crossOrigin = origin !== location.origin;

class ApiError extends Error {
    constructor(message, status) {
        super(message);
        this.status = status;
    }
}

// "HTTP 412 Precondition Failed: changed by someone else (StatusCode -1: ...)".
function describe(response, text) {
    let message = `HTTP ${response.status}${response.statusText ? " " + response.statusText : ""}`;
    if (response.status === 401) {
        message += ": authentication required";
    } else if (response.status === 412) {
        message += ": changed by someone else; the current record was reloaded";
    }
    let body = null;
    try {
        body = JSON.parse(text);
    } catch {
        return message;
    }
    const status = body && body.ResponseStatus;
    if (status) {
        return `${message} (StatusCode ${status.StatusCode}: ${status.StatusString}, ${status.RequestURL})`;
    }
    return `${message} ${text.slice(0, 200)}`;
}

// Sends one request; resolves to {data, etag} for a 2xx answer, rejects with an ApiError
// otherwise. A Blob body goes as is with `type`; any other body is sent as JSON.
export async function request(method, path, { query = {}, body, type, etag } = {}) {
    const url = new URL(path, origin);
    for (const [key, value] of Object.entries(query)) {
        url.searchParams.set(key, String(value).trim());
    }
    const headers = {};
    if (etag) {
        headers["If-Match"] = etag;
    }
    let payload = body;
    if (body instanceof Blob) {
        headers["Content-Type"] = type;
    } else if (body !== undefined) {
        payload = JSON.stringify(body);
        headers["Content-Type"] = "application/json";
    }
    let response;
    let text;
    try {
        response = await fetch(url, {
            method, headers, body: payload, cache: "no-store",
            mode: crossOrigin ? "cors" : "same-origin",
            credentials: crossOrigin ? "omit" : "same-origin",
        });
        text = await response.text();
    } catch (err) {
        throw new ApiError(`Network failure: ${err.message} (${url.origin})`, 0);
    }
    if (!response.ok) {
        throw new ApiError(describe(response, text), response.status);
    }
    let data = null;
    try {
        data = text ? JSON.parse(text) : null;
    } catch {
        throw new ApiError(`HTTP ${response.status}: the answer is not JSON`, response.status);
    }
    return { data, etag: response.headers.get("ETag") };
}

const isObject = (v) => v !== null && typeof v === "object" && !Array.isArray(v);

// The members of `after` that differ from `before`: objects member by member, arrays whole.
export function changes(before, after) {
    const out = {};
    for (const [key, value] of Object.entries(after)) {
        const old = before ? before[key] : undefined;
        if (isObject(value) && isObject(old)) {
            const inner = changes(old, value);
            if (Object.keys(inner).length) {
                out[key] = inner;
            }
        } else if (JSON.stringify(value) !== JSON.stringify(old)) {
            out[key] = value;
        }
    }
    return out;
}
