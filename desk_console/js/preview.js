// Frame OSD preview: a drawn road scene with the OSD text laid over it.
import { labelOf } from "./ui.js";

// OSD item types, numbered as the rows of the OSD capability.
export const ITEM_KEYS = [
    "TimeOSD", "PlateIdOSD", "VehicleTypeOSD", "LaneIdOSD", "PlateColorOSD", "VehicleColorOSD",
    "RoadIdOSD", "DevIdOSD", "DirIdOSD", "DirOSD", "CustomOSD", "SecurityCodeOSD",
    "Per_Brand_Type_OSD", "Sub_Brand_Type_OSD", "Year_Brand_Type_OSD", "LocateDescOSD",
    "MonitorInfoOSD", "BrandInfoOSD", "SpeedOSD", "LaneDescOSD", "PicNumOSD", "IllegalNumOSD",
    "IllegalDescOSD", "SpeedLimitOSD", "IllegalSpeedOSD", "LaneDirDescOSD", "VehicleLenOSD",
    "RedLightStartOSD", "RedLightEndOSD", "RedLightPeriodOSD", "SnapTrigTypeOSD",
    "VehicleMFRTypeOSD", "RadarDirDescOsd", "VehicleDirOSD", "VehicleTypeExtOSD", "ShelterPlateOSD",
];

// The record member whose osdContent each free-text item type shows.
export const TEXT_MEMBERS = {
    6: "roadIdOSD", 7: "devIdOSD", 8: "dirIdOSD", 9: "dirOSD", 10: "customOSD",
    15: "locateOSD", 16: "monitorOSD", 19: "laneOSD", 25: "laneDirOSD",
};

const TIME = 0;
const PICTURE_WIDTH = 1920;
const FONT_PX = { 0: 24, 1: 32, 2: 48 }; // text height on the 1920x1080 picture
const LOCATION_BOTTOM = 1;

const pad = (n, width = 2) => String(n).padStart(width, "0");

function timeText(timeOSD = {}, now = new Date()) {
    const [y, m, d] = [now.getFullYear(), pad(now.getMonth() + 1), pad(now.getDate())];
    const dates = [`${y}-${m}-${d}`, `${y}/${m}/${d}`, `${y}年${m}月${d}日`];
    const clock = `${pad(now.getHours())}:${pad(now.getMinutes())}:${pad(now.getSeconds())}`;
    const text = `${dates[timeOSD.type] || dates[0]} ${clock}`;
    return timeOSD.toMs ? `${text}.${pad(now.getMilliseconds(), 3)}` : text;
}

// What an item of `type` shows after its prefix.
function itemText(record, type) {
    if (type === TIME) {
        return timeText(record.timeOSD);
    }
    const member = TEXT_MEMBERS[type];
    if (member) {
        return (record[member] && record[member].osdContent) || "";
    }
    return `<${ITEM_KEYS[type] ? labelOf(ITEM_KEYS[type]) : `type ${type}`}>`;
}

// The text lines: each item is its prefix and text, then spaceNum blanks, or warpNum line
// breaks when it has any (counts capped for the preview).
function textLines(record) {
    const info = record.picOSDInfo;
    const lines = [""];
    info.picOSDType.forEach((type, i) => {
        const detail = info.picOsdDetail[i] || {};
        lines[lines.length - 1] += (detail.prefixEnable ? detail.prefixContent : "") + itemText(record, type);
        const breaks = Math.min(Number(info.warpNum[i]) || 0, 8);
        if (breaks) {
            lines.push(...Array(breaks).fill(""));
        } else {
            lines[lines.length - 1] += " ".repeat(Math.min(Number(info.spaceNum[i]) || 0, 64));
        }
    });
    return lines;
}

const rgba = (color, alpha) => {
    const c = Number(color) & 0xffffff;
    return `rgba(${c >> 16}, ${(c >> 8) & 0xff}, ${c & 0xff}, ${(Number(alpha) & 0xff) / 255})`;
};

function drawScene(ctx, w, h) {
    const sky = ctx.createLinearGradient(0, 0, 0, h * 0.45);
    sky.addColorStop(0, "#7fa9d6");
    sky.addColorStop(1, "#d7e4ef");
    ctx.fillStyle = sky;
    ctx.fillRect(0, 0, w, h * 0.45);
    ctx.fillStyle = "#6d8f4e";
    ctx.fillRect(0, h * 0.45, w, h * 0.55);
    ctx.fillStyle = "#55585c";
    ctx.beginPath();
    ctx.moveTo(w * 0.46, h * 0.45);
    ctx.lineTo(w * 0.54, h * 0.45);
    ctx.lineTo(w * 0.98, h);
    ctx.lineTo(w * 0.02, h);
    ctx.fill();
    ctx.strokeStyle = "#f2f2f2";
    ctx.setLineDash([h * 0.05, h * 0.05]);
    ctx.lineWidth = 3;
    for (const t of [0.33, 0.67]) {
        ctx.beginPath();
        ctx.moveTo(w * (0.46 + 0.08 * t), h * 0.45);
        ctx.lineTo(w * (0.02 + 0.96 * t), h);
        ctx.stroke();
    }
    ctx.setLineDash([]);
    ctx.fillStyle = "#b33a3a";
    ctx.fillRect(w * 0.36, h * 0.7, w * 0.1, h * 0.12);
    ctx.fillStyle = "#2f4f7a";
    ctx.fillRect(w * 0.53, h * 0.56, w * 0.06, h * 0.07);
}

export function drawPreview(canvas, record) {
    const ctx = canvas.getContext("2d");
    drawScene(ctx, canvas.width, canvas.height);
    const info = record && record.picOSDInfo;
    if (!info) {
        return;
    }
    const scale = canvas.width / PICTURE_WIDTH;
    const size = (FONT_PX[info.fontSize] || FONT_PX[1]) * (info.fontSizeExt === 1 ? 2 : 1) * scale;
    const lineHeight = Math.round(size * 1.3);
    const margin = Math.round(16 * scale);
    const lines = textLines(record);
    let y = info.osdLocation === LOCATION_BOTTOM
        ? canvas.height - margin - lines.length * lineHeight : margin;
    ctx.font = `${size}px sans-serif`;
    ctx.textBaseline = "middle";
    for (const line of lines) {
        if (line.trim()) {
            ctx.fillStyle = rgba(info.bgColor, info.bgAlpha);
            ctx.fillRect(margin, y, ctx.measureText(line.trimEnd()).width + 2 * margin, lineHeight);
            ctx.fillStyle = rgba(info.fgColor, info.fgAlpha);
            ctx.fillText(line, 2 * margin, y + lineHeight / 2);
        }
        y += lineHeight;
    }
}
