"use strict";

// The token is for nobody's eyes: neither over the shoulder nor in the history.
const token = new URLSearchParams(location.search).get("token");
history.replaceState(null, "", "/");

const element = (id) => document.getElementById(id);
const paper = element("paper").getContext("2d");
const pads = new Map(); // by their numbers
let chosen = null; // the pad's number
let source = null; // what is being received from, or was: {pad, facts, interface}
let receiving = false;
let packets = []; // {us, bytes, fields}
let strokes = []; // lists of [x, y, pressure]
let touched = false; // the pen does
let box = null; // around all points, with the highest pressure
let drawn = { stroke: 0, point: 0 }; // up to there the canvas has them
let isDrawingDue = false;

// ---- the bridge ----

const socket = new WebSocket(`ws://${location.host}/pads?token=${token}`);
const answers = new Map();
let lastId = 0;

function ask(request) {
    return new Promise((resolve, reject) => {
        lastId += 1;
        answers.set(lastId, { resolve, reject });
        socket.send(JSON.stringify({ id: lastId, ...request }));
    });
}

const events = {
    welcome({ layout }) {
        element("layout").value = layout;
        tell("connected");
        ask({ ask: "list" }).then((answer) => {
            for (const pad of answer.pads) {
                pads.set(pad.pad, pad);
            }
            showPads();
        });
    },
    plugged(pad) {
        pads.set(pad.pad, pad);
        tell(`plugged in: ${nameOf(pad)}`);
        showPads();
    },
    unplugged({ pad }) {
        tell(`unplugged: ${nameOf(pads.get(pad))}`);
        pads.delete(pad);
        if (receiving && source.pad === pad) {
            receiving = false;
        }
        showPads();
    },
    pen(event) {
        if (source && event.pad === source.pad && event.interface === source.interface) {
            for (const packet of event.packets) {
                take(packet);
            }
        }
    },
};

socket.addEventListener("message", ({ data }) => {
    const message = JSON.parse(data);
    if (message.event !== undefined) {
        events[message.event]?.(message);
        return;
    }
    const answer = answers.get(message.id);
    answers.delete(message.id);
    if (message.ok) {
        answer?.resolve(message);
    } else {
        answer?.reject(new Error(message.message));
    }
});
socket.addEventListener("close", () => {
    receiving = false;
    pads.clear();
    showPads();
    tell("not connected: the bridge has ended, or does not let this page in. Its address is told anew where it runs.");
});

// ---- the pads ----

function tell(text) {
    element("status").textContent = text;
}

function nameOf(pad) {
    return pad ? `${pad.maker} ${pad.product} ${pad.serial}`.trim() || `pad ${pad.pad}` : "a pad";
}

function showPads() {
    if (!pads.has(chosen)) {
        chosen = pads.size > 0 ? [...pads.keys()][0] : null;
    }
    element("pads").replaceChildren(...[...pads.values()].map((pad) => {
        const button = document.createElement("button");
        button.type = "button";
        button.textContent = nameOf(pad);
        button.dataset.pad = pad.pad;
        button.disabled = receiving;
        button.setAttribute("aria-pressed", String(pad.pad === chosen));
        button.addEventListener("click", () => {
            chosen = pad.pad;
            showPads();
        });
        const item = document.createElement("li");
        item.append(button);
        return item;
    }));
    element("start").disabled = receiving || chosen === null;
    element("stop").disabled = !receiving;
    for (const id of ["svg", "png", "recording"]) {
        element(id).disabled = receiving || packets.length === 0;
    }
}

element("controls").addEventListener("submit", async (event) => {
    event.preventDefault();
    clear();
    source = { pad: chosen, facts: pads.get(chosen), interface: Number(element("interface").value) };
    receiving = true;
    showPads();
    const layout = element("layout").value.trim();
    try {
        await ask({ ask: "start", pad: source.pad, interface: source.interface, ...(layout && { layout }) });
        tell(`receiving from ${nameOf(source.facts)}`);
    } catch (error) {
        receiving = false;
        tell(error.message);
        showPads();
    }
});

element("stop").addEventListener("click", async () => {
    try {
        await ask({ ask: "stop", pad: source.pad, interface: source.interface });
        tell("stopped");
    } catch (error) {
        tell(error.message);
    }
    receiving = false;
    showPads();
});

// ---- what is written ----

function take(packet) {
    packets.push(packet);
    const { x, y, pressure = 1 } = packet.fields;
    const touches = x !== undefined && y !== undefined && pressure > 0;
    if (touches) {
        if (!touched) {
            strokes.push([]);
        }
        strokes.at(-1).push([x, y, pressure]);
        widen(x, y, pressure);
    }
    touched = touches;
    if (!isDrawingDue) {
        isDrawingDue = true;
        requestAnimationFrame(draw);
    }
}

// What is drawn has another scale then.
function widen(x, y, pressure) {
    const { left, right, top, bottom, highest } = box ?? { left: x, right: x, top: y, bottom: y, highest: 1 };
    if (box === null || x < left || x > right || y < top || y > bottom || pressure > highest) {
        box = { left: Math.min(left, x), right: Math.max(right, x), top: Math.min(top, y), bottom: Math.max(bottom, y),
            highest: Math.max(highest, pressure) };
        drawn = { stroke: 0, point: 0 };
    }
}

function clear() {
    packets = [];
    strokes = [];
    touched = false;
    box = null;
    drawn = { stroke: 0, point: 0 };
    draw();
    showPads();
}

element("clear").addEventListener("click", clear);

// From the pad's numbers to the canvas, all of it in sight.
function place([x, y]) {
    const margin = 20;
    const { width, height } = paper.canvas;
    const factor = Math.min((width - 2 * margin) / Math.max(box.right - box.left, 1),
        (height - 2 * margin) / Math.max(box.bottom - box.top, 1));
    return [margin + (x - box.left) * factor, margin + (y - box.top) * factor];
}

function lineWidth(pressure, side) {
    return side * (0.003 + 0.011 * pressure / box.highest);
}

function draw() {
    isDrawingDue = false;
    element("count").textContent = String(packets.length);
    if (drawn.stroke === 0 && drawn.point === 0) {
        paper.clearRect(0, 0, paper.canvas.width, paper.canvas.height);
    }
    paper.strokeStyle = "#112233";
    paper.lineCap = "round";
    for (; drawn.stroke < strokes.length; drawn = { stroke: drawn.stroke + 1, point: 0 }) {
        const stroke = strokes[drawn.stroke];
        for (; drawn.point < stroke.length; drawn.point += 1) {
            paper.beginPath();
            paper.lineWidth = lineWidth(stroke[drawn.point][2], paper.canvas.height);
            paper.moveTo(...place(stroke[Math.max(drawn.point - 1, 0)]));
            paper.lineTo(...place(stroke[drawn.point]));
            paper.stroke();
        }
        if (drawn.stroke === strokes.length - 1) {
            break; // it may become longer
        }
    }
}

// ---- files ----

function save(name, blob) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(blob);
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

function svgText() {
    const { left, right, top, bottom } = box ?? { left: 0, right: 1, top: 0, bottom: 1 };
    const side = Math.max(right - left, bottom - top, 1);
    const edge = side * 0.03;
    const view = [left - edge, top - edge, right - left + 2 * edge, bottom - top + 2 * edge];
    const lines = strokes.flatMap((stroke) => stroke.map(([x, y, pressure], i) => {
        const [fromX, fromY] = stroke[Math.max(i - 1, 0)];
        return `<path d="M${fromX} ${fromY}L${x} ${y}" stroke-width="${lineWidth(pressure, side).toFixed(2)}"/>\n`;
    }));
    return `<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" viewBox="${view.join(" ")}">
<rect x="${view[0]}" y="${view[1]}" width="${view[2]}" height="${view[3]}" fill="#fff"/>
<g fill="none" stroke="#112233" stroke-linecap="round">
${lines.join("")}</g>
</svg>
`;
}

// What a terminal would act on, as recordings write it.
function harmless(text) {
    const unsafe = /[\x00-\x1f\x7f-\x9f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\\]/g;
    return text.replace(unsafe, (character) => {
        const code = character.codePointAt(0);
        return character === "\\" ? "\\\\"
            : code < 0x100 ? `\\x${code.toString(16).padStart(2, "0")}` : `\\u${code.toString(16).padStart(4, "0")}`;
    });
}

function recordingText() {
    const facts = Object.entries({ maker: source.facts.maker, product: source.facts.product, serial: source.facts.serial })
        .filter(([, value]) => value !== "").map(([key, value]) => `${key} ${harmless(value)}\n`);
    const size = packets[0].bytes.length / 2;
    const lines = packets.map(({ us, bytes }) => `${us - packets[0].us} ${bytes}\n`);
    return `vxpadcom-recording 1\n# recorded ${new Date().toISOString()} by vxpad-bridge\n${facts.join("")}` +
        `interface ${source.interface}\npacket-size ${size}\n${lines.join("")}`;
}

element("svg").addEventListener("click", () => save("signature.svg", new Blob([svgText()], { type: "image/svg+xml" })));
element("png").addEventListener("click", () => paper.canvas.toBlob((blob) => save("signature.png", blob)));
element("recording").addEventListener("click", () => save("signature.rec", new Blob([recordingText()], { type: "text/plain" })));
