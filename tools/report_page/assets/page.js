// The round's page: everything on it is made here from the data block
// (tools/report_page/page_data.h). Text from the round is only ever set as
// text, never as markup. The plots are uPlot's.
"use strict";
(function () {
  const stages = { script: performance.now() };
  const data = JSON.parse(document.getElementById("round-data").textContent);
  stages.parsed = performance.now();
  const page = document.getElementById("page");
  const plots = [];
  const images = [];

  // An element with attributes and children (strings become text).
  function el(tag, attrs, ...children) {
    const node = document.createElement(tag);
    for (const [key, value] of Object.entries(attrs || {})) {
      if (value === null || value === undefined || value === false) continue;
      if (key === "class") node.className = value;
      else if (key.startsWith("on")) node.addEventListener(key.slice(2), value);
      else node.setAttribute(key, value === true ? "" : value);
    }
    for (const child of children.flat()) {
      if (child === null || child === undefined || child === false) continue;
      node.appendChild(typeof child === "string" || typeof child === "number"
        ? document.createTextNode(String(child)) : child);
    }
    return node;
  }

  function section(id, title, ...children) {
    return el("section", { id }, el("h2", {}, title), ...children);
  }

  function table(head, rows, numeric) {
    return el("table", { class: "data" },
      el("thead", {}, el("tr", {}, head.map((h) => el("th", {}, h)))),
      el("tbody", {}, rows.map((row) => el("tr", {}, row.map((cell, i) =>
        el("td", { class: numeric && numeric[i] ? "num" : null }, cell))))));
  }

  function badge(verdict) {
    if (!verdict) return el("span", { class: "badge none" }, "no rule");
    return el("span", { class: "badge" + (verdict === "pass" ? "" : " fail") },
      verdict === "pass" ? "pass" : "fail");
  }

  // Colours of the picture distances, near to far: blue through green and
  // amber to red, each dark enough to read on white.
  const palette = ["#313695", "#2c7fb8", "#1d91a0", "#1a9850", "#66a61e", "#b8a000", "#e08214",
    "#d73027", "#a50026", "#6a3d9a"];
  function colourOf(i, n) { return palette[Math.round(i * (palette.length - 1) / Math.max(1, n - 1))]; }

  // A uPlot plot in a box of its own, sized to the box.
  function plotBox(name, title, note, make) {
    const holder = el("div", { "data-plot": name });
    const box = el("div", { class: "plot" }, el("h3", {}, title), note ? el("p", { class: "note" }, note) : null, holder);
    plots.push({ name, holder, make });
    return box;
  }

  function drawPlot(p) {
    if (p.plot) return;
    const width = Math.max(320, p.holder.clientWidth || 600);
    const [opts, values] = p.make();
    p.plot = new uPlot(Object.assign({ width, height: opts.height || 260 }, opts), values, p.holder);
  }

  // The plots in or near the window are drawn at once, the others when the
  // reader scrolls near them.
  function drawPlots() {
    const near = window.innerHeight + 300;
    const later = new IntersectionObserver((entries) => {
      for (const entry of entries) {
        if (!entry.isIntersecting) continue;
        later.unobserve(entry.target);
        drawPlot(plots.find((p) => p.holder === entry.target));
      }
    }, { rootMargin: "300px" });
    for (const p of plots) {
      if (p.holder.getBoundingClientRect().top < near) drawPlot(p);
      else later.observe(p.holder);
    }
    let timer = null;
    window.addEventListener("resize", () => {
      clearTimeout(timer);
      timer = setTimeout(() => {
        for (const p of plots) if (p.plot) p.plot.setSize({ width: Math.max(320, p.holder.clientWidth), height: p.plot.height });
      }, 100);
    });
  }

  const exitWords = {
    0: "the round ran to its end", 1: "the scenario is wrong", 2: "a command line or output problem",
    3: "the plug-in could not be loaded or the node not built", 4: "a request did not get its answer",
    5: "the replay differs from the recorded log", 6: "no private /tmp could be had",
  };

  // ---- Head of the page: what the round was and how it ended.
  function head() {
    const stopped = data.exit_code !== 0;
    const failed = data.figures.filter((f) => f.verdict === "fail").length;
    const unreadable = data.pictures.filter((p) => p.problem);
    const parts = [
      el("h1", {}, data.scenario ? "Round: " + data.scenario : "kivrun round"),
      data.description ? el("p", { class: "description" }, data.description) : null,
      el("p", {},
        el("span", { class: "verdict" + (stopped ? " fail" : "") },
          (stopped ? "stopped, exit code " : "exit code ") + data.exit_code),
        exitWords[data.exit_code] || "",
        data.figures.length ? " · " + (data.figures.length - failed) + " of " + data.figures.length +
          " figures within their rule" : ""),
    ];
    if (unreadable.length) {
      parts.push(el("div", { class: "banner bad", id: "unreadable" },
        el("strong", {}, unreadable.length + (unreadable.length === 1 ? " picture cannot" : " pictures cannot") + " be shown:"),
        el("ul", {}, unreadable.map((p) => el("li", {}, el("span", { class: "mono" }, p.path),
          p.version ? " (version " + p.version + ")" : "", ": " + p.problem)))));
    }
    if (data.log.state !== "read") {
      parts.push(el("div", { class: "banner", id: "no-log" },
        el("strong", {}, "No event log of this round: "), data.log.note + ". ",
        "The timeline, the figures beside the truth and the plane's plots come from it."));
    }
    parts.push(el("nav", { class: "toc" }, [["figures", "Figures and truth"], ["summary", "Summary"],
      ["planes", "Laser planes"], ["camera", "Camera"], ["pictures", "Pictures"], ["timeline", "Timeline"]]
      .map(([id, words]) => el("a", { href: "#" + id }, words))));
    return el("header", {}, parts);
  }

  // ---- Each computed figure beside the truth, and its errors against the goals.
  function figures() {
    if (!data.figures.length) {
      return section("figures", "Figures beside the truth", el("p", { class: "missing" },
        data.log.state === "read"
          ? "No calculation node computed a figure in this round (a node that answers with the scenario's numbers computes none)."
          : "Without the round's event log the computed figures are not known here (see report.md)."));
    }
    const rows = data.figures.map((f) => [f.group + ": " + f.what, f.computed, f.uncertainty || "—",
      f.truth || "—", f.error || "—", f.scatter || "—", f.rule, badge(f.verdict)]);
    const shared = data.figures.filter((f) => f.share_of_goal !== null);
    const labels = shared.map((f) => f.group.replace(" laser plane", "") + " " + f.what.split(" ")[0]);
    return section("figures", "Figures beside the truth",
      el("p", { class: "note" }, "The truth is the camera simulator's. The 1σ is the uncertainty the node reported of its own figure; " +
        "the scatter is what it measured of its own points. " +
        "The plane check and the lasers' agreement are the round's own rules; the accuracy goals are those the calibration is held to (docs/calibration-accuracy.md)."),
      table(["figure", "computed", "1σ", "truth", "error", "scatter", "rule", ""], rows),
      shared.length ? el("div", { class: "plots" }, plotBox("errors", "Each error as a share of its goal",
        "100 % is the goal; the bars are |error| / goal.", () => [{
          height: 220,
          scales: { x: { time: false, range: [-0.5, shared.length - 0.5] }, y: { range: (u, min, max) => [0, Math.max(110, max * 1.1)] } },
          axes: [{ values: (u, splits) => splits.map((v) => labels[v] || ""), splits: () => labels.map((l, i) => i), size: 40 },
            { label: "% of goal", values: (u, s) => s.map((v) => v + " %") }],
          legend: { show: false },
          series: [{}, { label: "share of goal", fill: "#1f5fa8aa", stroke: "#1f5fa8", paths: uPlot.paths.bars({ size: [0.5, 60] }) },
            { label: "goal", stroke: "#b3261e", dash: [6, 4], points: { show: false } }],
        }, [labels.map((l, i) => i), shared.map((f) => 100 * f.share_of_goal), labels.map(() => 100)]])) : null);
  }

  // ---- The summary as report.md has it, and every refusal.
  function summary() {
    return section("summary", "Summary",
      data.summary.length ? table(["figure", "value"], data.summary) : el("p", { class: "missing" }, "No figures."),
      data.problems.length ? [el("h3", {}, "What the calculation nodes refused or failed on"),
        el("ul", { id: "problems" }, data.problems.map((p) => el("li", {}, p)))] : null);
  }

  // ---- Per laser: the plane fit's residuals and points.
  function planes() {
    const parts = [];
    if (!data.lasers.length) {
      parts.push(el("p", { class: "missing" }, data.log.state === "read"
        ? "No computing plane node answered in this round: there are no fitted planes to show."
        : "Without the round's event log the pictures the plane node read are not known."));
      return section("planes", "Laser planes", parts);
    }
    parts.push(el("p", { class: "note" }, "Worked out again when this page was written: the plane node's own steps " +
      "(tools/calc) on the pictures it read, as the round left them, with the camera the round's settings describe. " +
      "Residuals are signed distances from the fitted plane; the plane's coordinates run along it (forward) and up it."));
    for (const laser of data.lasers) {
      parts.push(el("h3", {}, laser.side + " laser"));
      if (laser.problem) {
        parts.push(el("p", { class: "missing" }, laser.problem));
        continue;
      }
      const pl = laser.plane;
      parts.push(el("p", {}, "Fitted again: yaw " + pl.yaw.toFixed(4) + "°, roll " + pl.roll.toFixed(4) + "°, offset " +
        pl.offset_mm.toFixed(4) + " mm, RMS " + pl.rms_um.toFixed(1) + " µm over " + pl.points + " points. ",
      laser.matches_log ? el("span", { class: "badge" }, "the plane the node logged")
        : el("span", { class: "badge fail" }, "differs from the logged plane (" + (laser.logged || "none logged") +
          "): the pictures or the camera are not those the node worked from")));
      for (const n of laser.notes) parts.push(el("p", { class: "banner" }, n));
      parts.push(el("div", { class: "plots" },
        plotBox(laser.side + "-rows", "Residuals against the picture row", "µm from the plane; one colour a distance", () => residualsByRow(laser)),
        plotBox(laser.side + "-distances", "Residuals against distance", "per picture: RMS, mean and the largest", () => residualsByDistance(laser)),
        plotBox(laser.side + "-plane", "The points of all distances in the plane", "mm along the plane and up it", () => pointsInPlane(laser))));
    }
    return section("planes", "Laser planes", parts);
  }

  function distanceSeries(laser, extra) {
    return laser.distances.map((d, i) => Object.assign({
      label: d.distance + " cm", stroke: colourOf(i, laser.distances.length), fill: colourOf(i, laser.distances.length),
      paths: () => null, points: { show: true, size: 3, width: 0 },
    }, extra || {}));
  }

  function residualsByRow(laser) {
    const rows = [...new Set(laser.distances.flatMap((d) => d.row))].sort((a, b) => a - b);
    const at = new Map(rows.map((r, i) => [r, i]));
    const columns = laser.distances.map((d) => {
      const values = rows.map(() => null);
      d.row.forEach((r, i) => { values[at.get(r)] = d.residual_um[i]; });
      return values;
    });
    return [{
      scales: { x: { time: false } },
      axes: [{ label: "picture row" }, { label: "µm" }],
      legend: { live: false },
      series: [{ label: "row" }, ...distanceSeries(laser)],
    }, [rows, ...columns]];
  }

  function residualsByDistance(laser) {
    const xs = laser.distances.map((d) => d.distance);
    const stats = laser.distances.map((d) => {
      const r = d.residual_um;
      const n = r.length || 1;
      const mean = r.reduce((a, b) => a + b, 0) / n;
      const rms = Math.sqrt(r.reduce((a, b) => a + b * b, 0) / n);
      const largest = r.reduce((a, b) => Math.max(a, Math.abs(b)), 0);
      return { mean, rms, largest };
    });
    return [{
      scales: { x: { time: false } },
      axes: [{ label: "distance (cm)" }, { label: "µm" }],
      legend: { live: false },
      series: [{ label: "distance" },
        { label: "RMS", stroke: "#1f5fa8", width: 2, points: { show: true, size: 6 } },
        { label: "mean", stroke: "#1f7a3a", width: 1.5, points: { show: true, size: 5 } },
        { label: "largest |residual|", stroke: "#b3261e", width: 1.5, dash: [5, 3], points: { show: true, size: 5 } }],
    }, [xs, stats.map((s) => s.rms), stats.map((s) => s.mean), stats.map((s) => s.largest)]];
  }

  function pointsInPlane(laser) {
    return [{
      mode: 2,
      height: 300,
      scales: { x: { time: false } },
      axes: [{ label: "along the plane (mm)" }, { label: "up (mm)" }],
      legend: { live: false },
      cursor: { drag: { x: false, y: false } },
      series: [{}, ...distanceSeries(laser, { paths: uPlot.paths.points() }).map((s) => Object.assign(s, {
        facets: [{ scale: "x", auto: true }, { scale: "y", auto: true }] }))],
    }, [null, ...laser.distances.map((d) => [d.along_mm, d.height_mm])]];
  }

  // ---- The camera: the one the computing nodes used, and a recovered one when a round computes it.
  function camera() {
    const parts = [];
    const cam = data.camera;
    if (!cam) {
      parts.push(el("p", { class: "missing" }, "Without the round's event log the camera is not known here."));
      return section("camera", "Camera", parts);
    }
    const u = cam.used;
    parts.push(el("p", {}, "The camera the computing nodes used (the simulator's, as the round's settings left it): " +
      "fx " + u.fx + ", fy " + u.fy + ", cx " + u.cx + ", cy " + u.cy + " px; " + u.height + " cm above the floor, pitched " +
      u.pitch + "° down; wall " + u.wall_height + " cm high."));
    if (cam.recovered && cam.grid) {
      const r = cam.recovered;
      parts.push(el("p", { id: "recovered-camera" }, "The camera measured from the chessboard views: fx " + r.fx + ", fy " + r.fy +
        ", cx " + r.cx + ", cy " + r.cy + " px, k1 " + r.k1 + "; its grid lies at most " +
        cam.grid.largest_difference_px.toFixed(2) + " px from the truth's anywhere in the picture (each figure with its 1σ under Figures)."));
      parts.push(el("div", { class: "plots" }, plotBox("camera-grid", "Recovered camera against the truth",
        "a grid of the picture as each camera maps it: grey the truth, red the recovered camera", () => cameraGrid(cam.grid))));
    } else {
      const ie = cam.ieparam;
      parts.push(el("p", { class: "missing", id: "no-camera" }, "No calculation in this round recovers a camera, so there is no distortion field to show" +
        (ie ? "; the camera-parameter node answered with the scenario's numbers: " + JSON.stringify(ie.fields) : "") + "."));
    }
    return section("camera", "Camera", parts);
  }

  // A grid as lines: {truth: [[xs, ys], ...], recovered: [[xs, ys], ...]}.
  function cameraGrid(grid) {
    const series = [{}];
    const values = [null];
    for (const [name, colour] of [["truth", "#8a949e"], ["recovered", "#b3261e"]]) {
      (grid[name] || []).forEach((line, i) => {
        series.push({ label: name, stroke: colour, width: name === "truth" ? 1 : 1.5,
          facets: [{ scale: "x", auto: true }, { scale: "y", auto: true }] });
        values.push(line);
      });
    }
    return [{ mode: 2, height: 360, scales: { x: { time: false }, y: { dir: -1 } }, legend: { show: false },
      axes: [{ label: "column" }, { label: "row" }], series }, values];
  }

  // ---- Pictures: a grid, and a viewer that zooms, with the stripe cut's marks on request.
  let marksShown = true;
  const cards = [];
  const cardsShown = () => cards.filter((c) => c.querySelector("img.picture")).length;
  let nearby = null;
  function showCard(card) {
    nearby.unobserve(card);
    if (card.querySelector("img.picture")) return;
    card.firstChild.replaceChildren(...pictureLayers(data.pictures[Number(card.dataset.picture)]));
    showMarks(marksShown);
  }

  function legend() {
    return el("div", { class: "legend" }, data.legend.map((m) => el("span", {},
      el("span", { class: "swatch", style: "background:" + m.colour }), m.words)));
  }

  function pictureLayers(p) {
    const img = el("img", { class: "picture" + (marksShown && p.cut ? " dimmed" : ""), src: p.image, alt: p.path, width: p.width, height: p.height });
    images.push(img);
    const layers = [img];
    if (p.cut) {
      const overlay = el("img", { class: "overlay", src: p.cut.overlay, alt: "", width: p.width, height: p.height });
      overlay.hidden = !marksShown;
      images.push(overlay);
      layers.push(overlay);
    }
    return layers;
  }

  function cutWords(p) {
    if (p.problem) return el("div", { class: "outcome-refused" }, "cannot read: " + p.problem);
    if (!p.cut) return el("div", { class: "note" }, "no stripe cut: " + p.no_cut);
    // The node cuts only the app's pictures; of the others the page says what
    // the cut would make of them.
    if (!p.app) return el("div", { class: "note" }, p.cut.side + " laser; the stripe cut, were it an app picture: " + p.cut.words);
    return el("div", { class: p.cut.result === 0 ? "outcome-cut" : "outcome-refused" },
      p.cut.side + " laser, stripe cut: " + p.cut.words);
  }

  function pictureFacts(p) {
    const facts = [p.label, p.version ? "version " + p.version : null, p.reply ? "reply " + p.reply : null,
      p.writes > 1 ? "written " + p.writes + " times" : null].filter(Boolean).join(", ");
    const shown = p.problem ? "" : p.width + " x " + p.height + (p.exact ? ", shown exactly" :
      ", shown as JPEG within " + p.largest_difference + " grey levels of the file");
    return [facts, p.size + " bytes, FNV-1a 64 " + (p.hash || "-"), shown].filter(Boolean);
  }

  function pictures() {
    const parts = [];
    if (!data.pictures.length) {
      parts.push(el("p", { class: "missing" }, "No pictures were written."));
      return section("pictures", "Pictures", parts);
    }
    const toggle = el("input", { type: "checkbox", id: "marks", checked: marksShown, onchange: () => showMarks(toggle.checked) });
    parts.push(el("div", { class: "controls" }, el("label", {}, toggle, " show the stripe cut's marks (picture dimmed to 60 %, as stripe-inspect --overlay draws it)"),
      el("span", { class: "note" }, "Click a picture to look at it closely: wheel or buttons to zoom, drag to move, ← → for the next, o for the marks, Esc to close.")));
    parts.push(legend());
    // A card's picture is made when the card comes near the window: the
    // pictures far down the page cost nothing until the reader gets there.
    nearby = new IntersectionObserver((entries) => {
      for (const entry of entries) if (entry.isIntersecting) showCard(entry.target);
    }, { rootMargin: "300px" });
    parts.push(el("div", { class: "grid" }, data.pictures.map((p, i) => {
      const stack = p.problem ? el("div", { class: "stack unreadable" }, "cannot read: " + p.problem)
        : el("div", { class: "stack" });
      const card = el("div", { class: "card", "data-picture": i, onclick: () => openViewer(i) }, stack,
        el("div", { class: "body" }, el("div", { class: "path" }, p.path), pictureFacts(p).map((f) => el("div", {}, f)), cutWords(p)));
      if (!p.problem) nearby.observe(card);
      cards.push(card);
      return card;
    })));
    if (data.versions_not_kept > 0) {
      parts.push(el("p", { class: "note" }, data.versions_not_kept + " later versions of rewritten pictures are not shown: at most 64 a picture are kept."));
    }
    return section("pictures", "Pictures", parts);
  }

  function showMarks(on) {
    marksShown = on;
    document.getElementById("marks").checked = on;
    for (const o of document.querySelectorAll("img.overlay")) o.hidden = !on;
    for (const img of document.querySelectorAll("img.picture")) {
      const withCut = img.parentNode.querySelector("img.overlay");
      img.classList.toggle("dimmed", on && !!withCut);
    }
  }

  // The viewer: one picture, zoomed and moved by hand.
  const viewer = { index: -1, scale: 1, x: 0, y: 0 };
  function buildViewer() {
    const zoomed = el("div", { class: "zoomed" });
    const viewport = el("div", { class: "viewport" }, zoomed);
    const title = el("span", { class: "title" });
    const readout = el("span", { class: "readout" });
    const info = el("div", { class: "info" });
    const button = (words, action) => el("button", { type: "button", onclick: action }, words);
    const box = el("div", { class: "viewer", id: "viewer" },
      el("div", { class: "bar" }, title,
        button("←", () => step(-1)), button("→", () => step(1)),
        button("fit", fit), button("1:1", () => zoomTo(1)), button("4:1", () => zoomTo(4)), button("16:1", () => zoomTo(16)),
        el("button", { type: "button", id: "to-cut", onclick: toCut }, "to the cut line"),
        button("marks on/off", () => showMarks(!marksShown)), button("close", closeViewer), readout),
      info, legend(), viewport);
    Object.assign(viewer, { box, zoomed, viewport, title, readout, info });
    viewport.addEventListener("wheel", (e) => {
      e.preventDefault();
      const r = viewport.getBoundingClientRect();
      zoomAt(viewer.scale * (e.deltaY < 0 ? 1.25 : 0.8), e.clientX - r.left, e.clientY - r.top);
    }, { passive: false });
    let drag = null;
    viewport.addEventListener("pointerdown", (e) => { drag = { x: e.clientX - viewer.x, y: e.clientY - viewer.y }; viewport.setPointerCapture(e.pointerId); });
    viewport.addEventListener("pointerup", () => { drag = null; });
    viewport.addEventListener("pointermove", (e) => {
      if (drag) { viewer.x = e.clientX - drag.x; viewer.y = e.clientY - drag.y; place(); }
      readPixel(e);
    });
    document.addEventListener("keydown", (e) => {
      if (!box.classList.contains("open")) return;
      if (e.key === "Escape") closeViewer();
      else if (e.key === "ArrowRight") step(1);
      else if (e.key === "ArrowLeft") step(-1);
      else if (e.key === "o") showMarks(!marksShown);
    });
    document.body.appendChild(box);
  }

  function place() { viewer.zoomed.style.transform = "translate(" + viewer.x + "px," + viewer.y + "px) scale(" + viewer.scale + ")"; }
  function zoomAt(scale, cx, cy) {
    scale = Math.min(64, Math.max(0.1, scale));
    viewer.x = cx - (cx - viewer.x) * scale / viewer.scale;
    viewer.y = cy - (cy - viewer.y) * scale / viewer.scale;
    viewer.scale = scale;
    place();
  }
  function zoomTo(scale) { zoomAt(scale, viewer.viewport.clientWidth / 2, viewer.viewport.clientHeight / 2); }
  // The point where the stripe cut found its cut line, at 6:1 in the middle.
  function toCut() {
    const cut = data.pictures[viewer.index].cut;
    if (!cut || cut.cut_line < 0) return;
    viewer.scale = 6;
    viewer.x = viewer.viewport.clientWidth / 2 - (cut.cut_column + 0.5) * 6;
    viewer.y = viewer.viewport.clientHeight / 2 - (cut.cut_line + 0.5) * 6;
    place();
  }
  function fit() {
    const p = data.pictures[viewer.index];
    const w = viewer.viewport.clientWidth, h = viewer.viewport.clientHeight;
    viewer.scale = Math.min(w / (p.width || 640), h / (p.height || 480));
    viewer.x = (w - (p.width || 640) * viewer.scale) / 2;
    viewer.y = (h - (p.height || 480) * viewer.scale) / 2;
    place();
  }

  // Grey levels under the pointer, read from the picture as shown.
  let pixels = null;
  function readPixel(e) {
    const p = data.pictures[viewer.index];
    if (!p || p.problem) return;
    const r = viewer.viewport.getBoundingClientRect();
    const col = Math.floor((e.clientX - r.left - viewer.x) / viewer.scale);
    const row = Math.floor((e.clientY - r.top - viewer.y) / viewer.scale);
    if (col < 0 || row < 0 || col >= p.width || row >= p.height) { viewer.readout.textContent = ""; return; }
    let grey = "";
    if (pixels && pixels.index === viewer.index) {
      const at = (row * p.width + col) * 4;
      grey = p.channels === 1 ? ", grey " + pixels.data[at] : ", RGB " + pixels.data[at] + " " + pixels.data[at + 1] + " " + pixels.data[at + 2];
    }
    viewer.readout.textContent = "row " + row + ", column " + col + grey;
  }

  function openViewer(i) {
    const p = data.pictures[i];
    viewer.index = i;
    viewer.zoomed.replaceChildren(...(p.problem ? [el("div", { class: "stack unreadable", style: "width:640px;height:480px" }, "cannot read: " + p.problem)]
      : pictureLayers(p)));
    showMarks(marksShown);
    viewer.title.textContent = (i + 1) + " / " + data.pictures.length + "  " + p.path;
    viewer.info.replaceChildren(...pictureFacts(p).map((f) => el("span", {}, f + " · ")), cutWords(p));
    viewer.box.classList.add("open");
    document.getElementById("to-cut").hidden = !(p.cut && p.cut.cut_line >= 0);
    fit();
    pixels = null;
    if (!p.problem) {
      const img = viewer.zoomed.querySelector("img.picture");
      img.decode().then(() => {
        const canvas = document.createElement("canvas");
        canvas.width = p.width;
        canvas.height = p.height;
        const ctx = canvas.getContext("2d", { willReadFrequently: true });
        ctx.drawImage(img, 0, 0);
        pixels = { index: i, data: ctx.getImageData(0, 0, p.width, p.height).data };
      }).catch(() => {});
    }
  }
  function closeViewer() { viewer.box.classList.remove("open"); viewer.index = -1; }
  function step(by) { openViewer((viewer.index + by + data.pictures.length) % data.pictures.length); }

  // ---- The round's timeline on its simulated clock.
  function timeline() {
    const tl = data.timeline;
    if (!tl.t.length) {
      return section("timeline", "Timeline", el("p", { class: "missing" }, data.log.state === "read"
        ? "The round's log holds no requests, replies, pictures or answers." : "Without the round's event log there is no timeline."));
    }
    const times = [...new Set(tl.t)].sort((a, b) => a - b);
    const at = new Map(times.map((t, i) => [t, i]));
    const byTime = times.map(() => []);
    tl.t.forEach((t, i) => byTime[at.get(t)].push(i));
    const lanes = tl.lanes;
    const laneColours = ["#1f5fa8", "#1f7a3a", "#8a949e", "#9a6700", "#b3261e", "#6f42c1"];
    const info = el("div", { class: "timeline-info" }, "Point at the plot to see what happened then.");
    const columns = lanes.map((lane, l) => {
      const v = times.map(() => null);
      tl.t.forEach((t, i) => { if (tl.lane[i] === l) v[at.get(t)] = l; });
      return v;
    });
    const box = plotBox("timeline", "Requests, replies, pictures and answers", "simulated time, seconds", () => [{
      height: 280,
      scales: { x: { time: false }, y: { range: [-0.6, lanes.length - 0.4] } },
      axes: [{ label: "s" }, { size: 170, splits: () => lanes.map((n, i) => i), values: (u, s) => s.map((v) => lanes[v] || "") }],
      legend: { show: false },
      series: [{ label: "t", value: (u, v) => v == null ? "" : v.toFixed(3) + " s" },
        ...lanes.map((lane, l) => ({ label: lane, stroke: laneColours[l], fill: laneColours[l], paths: () => null, points: { show: true, size: 7, width: 0 } }))],
      hooks: { setCursor: [(u) => {
        const idx = u.cursor.idx;
        if (idx == null) return;
        info.textContent = (times[idx] / 1e6).toFixed(3) + " s\n" + byTime[idx].map((i) => lanes[tl.lane[i]] + ": " + tl.text[i]).join("\n");
      }] },
    }, [times.map((t) => t / 1e6), ...columns]]);
    box.appendChild(info);
    const rows = tl.t.map((t, i) => [(t / 1e6).toFixed(3), lanes[tl.lane[i]], el("span", { class: "mono" }, tl.text[i])]);
    return section("timeline", "Timeline", box,
      el("details", {}, el("summary", {}, "Every event of the timeline (" + rows.length + ")"), table(["s", "lane", "what"], rows, [true])));
  }

  function footer() {
    return el("footer", {}, "Written by kivrun from the round's summary, pictures and event log (" + data.log.events + " events). " +
      "Plots drawn by uPlot. The data behind this page is the JSON in its element #round-data.");
  }

  page.append(head(), figures(), summary(), planes(), camera(), pictures(), timeline(), footer());
  buildViewer();
  stages.built = performance.now();
  drawPlots();
  stages.plotted = performance.now();
  // Drawn: the plots and pictures in view made, the pictures decoded and
  // the frame painted. What lies further down is made when the reader
  // scrolls to it.
  requestAnimationFrame(() => requestAnimationFrame(() => {
    const inView = images.slice();
    Promise.all(inView.map((img) => img.decode().catch(() => null))).then(() => {
      const ms = performance.now();
      stages.decoded = ms;
      window.roundPage = { drawnMs: ms, stages, plots: plots.map((p) => p.name),
        plotsInView: plots.filter((p) => p.plot).length, pictures: data.pictures.length, picturesInView: cardsShown() };
      document.body.dataset.drawn = ms.toFixed(1);
    });
  }));
  // Everything the page holds drawn and decoded, for those who wait for it
  // all; the time it was done.
  window.roundPageAll = () => {
    for (const p of plots) drawPlot(p);
    for (const card of cards) if (!data.pictures[Number(card.dataset.picture)].problem) showCard(card);
    return Promise.all(images.map((img) => img.decode().catch(() => null))).then(() => performance.now());
  };
})();
