// main.js: puts the page together: where the reader is, what the server tells, and what is shown.

import { apiAddress, readPlace, writePlace } from "./address.js";
import { get, Refusal } from "./api.js";
import { Attention } from "./attention.js";
import { Changes } from "./changes.js";
import { now, restoreUtc, setUtc, showsUtc, showTime } from "./clock.js";
import { h, setText } from "./dom.js";
import { Link } from "./link.js";
import { ListView } from "./list_view.js";
import { Paces, usualInterval } from "./pace.js";
import { ServerPanel } from "./server_panel.js";
import { findSource, groupsOf, keptGroup } from "./sources.js";
import { Stream } from "./stream.js";
import { parseTime, zoneName } from "./times.js";

const byId = (id) => document.getElementById(id);
const sourceView = () => import("./source_view.js");
const PACES_AT_ONCE = 6;
const ROWS_OF_A_PACE = 20;
const UNHEARD = 15e6; // microseconds after which a source's pace is worth knowing
const KEPT_ROWS = 1000; // newest ones that tell which sources a group had
const LIST_PAUSE = 250; // ms between two updates of a list by live rows

const paces = new Paces();
const changes = new Changes();
const panel = new ServerPanel();
/** What views look at. kept: what is not registered of the place; null: it is asked for; undefined: nothing. */
const context = { link: null, groups: [], kept: undefined, troubles: 0, attention: new Attention() };
let place = readPlace(location.hash);
let view = null;
let stream = null;
let streamAddress = "";
let keptPlace = "";
let listTimer = 0;

// What the server tells.

function linkChanged() {
  const { link } = context;
  if (link.applications) {
    context.groups = groupsOf(link.applications, paces, now());
    learnPaces();
    learnKept();
    openStream();
  }
  showLost();
  showAll();
  if (link.applications && !performance.getEntriesByName("first-values").length) {
    performance.mark("first-values");
    sourceView().catch(() => {}); // so that it is at hand, even when the server is not
  }
}

function showAll() {
  const { link } = context;
  const isOverview = place.application === null;
  context.troubles = context.attention.update(link, context.groups, !isOverview);
  panel.update(link.state);
  changes.update();
  view?.update();
  const trouble = link.lostSince !== null || link.health || context.troubles;
  document.title = `${trouble ? "⚠ " : ""}${[place.source, place.group, place.application].filter(Boolean).join(" · ") || "zordchd"}`;
}

function showLost() {
  const { lostSince } = context.link;
  const lost = byId("lost");
  if (lostSince === null) {
    lost.hidden = true;
    lost.replaceChildren();
  } else if (lost.hidden) {
    lost.hidden = false;
    const time = h("time");
    showTime(time, lostSince);
    lost.append(h("strong", {}, "The server cannot be reached"), " since ", time,
      ". What is shown is from before. This page tries again by itself.");
  }
}

/** Asks the kept rows of sources that seem silent how often their rows came. */
function learnPaces() {
  const { link, groups } = context;
  if (!link.state || link.state.state === "memory" || link.lostSince !== null) return;
  const doubtful = groups.flatMap((group) => group.sources).filter((source) =>
    source.online && source.lastRow !== null && now() - source.lastRow > UNHEARD && paces.isUnknown(source.key))
    .sort((a, b) => b.lastRow - a.lastRow).slice(0, PACES_AT_ONCE);
  for (const { key, application, group, name } of doubtful) {
    paces.learn(key, null); // asked once, whatever comes of it
    get("/api/rows", { application, group, source: name, limit: ROWS_OF_A_PACE }).then(({ columns, rows }) => {
      const time = columns.indexOf("time_us");
      paces.learn(key, usualInterval(rows.map((row) => row[time]).sort((a, b) => a - b)));
      context.link.askNow();
    }, () => {});
  }
}

/** Asks, once, for the newest kept rows of a group or source that is not registered. */
function learnKept() {
  const { application, group, source } = place;
  const isThere = group === null || (source === null ? isGroupRegistered() : findSource(context.groups, place));
  const wanted = isThere || context.link.state?.state === "memory" ? "" : writePlace({ application, group, source });
  if (wanted !== keptPlace) {
    keptPlace = wanted;
    context.kept = wanted ? null : undefined;
    const learned = (kept) => {
      if (wanted !== keptPlace) return;
      context.kept = kept;
      linkChanged();
    };
    if (wanted) {
      get("/api/rows", { application, group, source, limit: KEPT_ROWS }).then(
        (answer) => learned(answer.rows.length ? keptGroup(application, group, answer) : undefined),
        (error) => {
          if (error instanceof Refusal && error.status < 500) learned(undefined);
          else if (wanted === keptPlace) keptPlace = ""; // Then it is asked again.
        });
    }
  }
  if (context.kept) context.groups.push(context.kept);
}

const isGroupRegistered = () =>
  context.link.applications.find((each) => each.name === place.application)?.groups.some((each) => each.name === place.group);

// What happens live.

/** For the place's group while it is registered, else for changes of status alone. */
function openStream() {
  const { application, group } = place;
  const address = isGroupRegistered() ? apiAddress("/api/live", { application, group, status: true }) : "/api/live?status";
  if (address === streamAddress || !view) return;
  stream?.close();
  streamAddress = address;
  stream = new Stream(address, {
    row: rowCame,
    status: (event) => {
      changes.add(event);
      context.link.askNow();
    },
    lost: () => view.lost?.(),
    opened: () => view.opened?.(),
    failed: () => context.link.askNow(),
  });
}

function rowCame(event) {
  if (view.row) {
    view.row(event);
    return;
  }
  const group = context.groups.find((each) => each.application.name === place.application && each.name === place.group);
  const source = group?.sources.find((each) => each.name === event.source);
  if (!source) return;
  source.lastRow = parseTime(event.time);
  source.values = event.values;
  if (source.state !== "offline") source.state = "online";
  listTimer ||= setTimeout(() => {
    listTimer = 0;
    view.update();
  }, LIST_PAUSE);
}

// Where the reader is.

async function arrive(isFirst) {
  const before = place;
  place = readPlace(location.hash);
  const isSame = !isFirst && ["application", "group", "source"].every((name) => before[name] === place[name]);
  if (isSame) {
    view.move(place);
  } else {
    view?.close?.();
    view = await makeView(place);
    if (!view) return;
    byId("main").replaceChildren(view.element);
  }
  showCrumbs();
  if (document.activeElement !== byId("find")) byId("find").value = place.find;
  if (context.link.applications && !isSame) {
    linkChanged();
    if (stream.isOpen) view.opened?.();
  } else {
    showAll();
  }
  if (!isSame && !isFirst && document.activeElement !== byId("find")) {
    scrollTo(0, 0);
    view.element.querySelector("h1").focus({ preventScroll: true });
  }
}

let arrivals = 0;
async function makeView(where) {
  const arrival = ++arrivals;
  if (where.source === null) return new ListView(where, context);
  try {
    const { SourceView } = await sourceView();
    return arrival === arrivals ? new SourceView(where, context) : null;
  } catch {
    setTimeout(() => arrive(true), 1000); // The server is gone.
    return null;
  }
}

function showCrumbs() {
  const { application, group, source, range } = place;
  const steps = [["Overview", {}]];
  if (application !== null) steps.push([application, { application }]);
  if (group !== null) steps.push([group, { application, group }]);
  if (source !== null) steps.push([source, { application, group, source, range }]);
  byId("crumbs").replaceChildren(h("ol", {}, ...steps.map(([name, where], i) =>
    h("li", {}, h("a", { href: writePlace(where), "aria-current": i === steps.length - 1 ? "page" : false }, name)))));
}

// The reader's hands.

function search(text) {
  const target = writePlace({ find: text, show: place.application === null ? place.show : "" });
  if (place.application !== null) location.hash = target;
  else {
    history.replaceState(null, "", target);
    arrive(false);
  }
}

function setUpControls() {
  const find = byId("find");
  find.addEventListener("input", () => search(find.value));
  byId("search").addEventListener("submit", (event) => {
    event.preventDefault();
    document.querySelector("main .sources a")?.focus();
  });
  document.addEventListener("keydown", (event) => {
    const isTyping = event.target.matches?.("input, textarea, select");
    if (event.key === "/" && !isTyping && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
      find.focus();
      find.select();
    } else if (event.key === "Escape" && event.target === find) {
      find.value = "";
      search("");
      find.blur();
    }
  });
  byId("skip").addEventListener("click", (event) => {
    event.preventDefault();
    byId("main").focus();
  });
  const utc = byId("utc");
  const showZone = () => {
    const zone = zoneName(now());
    setText(utc, showsUtc() ? "UTC" : zone);
    utc.title = showsUtc() ? `Times are in UTC. Show them in your zone, ${zone}` : "Times are in your zone. Show them in UTC";
  };
  utc.addEventListener("click", () => {
    setUtc(!showsUtc());
    showZone();
    showAll();
  });
  restoreUtc();
  showZone();
}

byId("aside").append(changes.element, panel.element);
setUpControls();
context.link = new Link(linkChanged);
addEventListener("hashchange", () => arrive(false));
arrive(true);
/** For the browser's console, and for tests. */
globalThis.zord410 = { context, get view() { return view; }, get place() { return place; }, get stream() { return stream; } };
