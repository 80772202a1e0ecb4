// sources.js: the sources of all applications, what state they are in, and which to show first.

import { FIRST_VALUE } from "./api.js";
import { parseTime } from "./times.js";

/** States in the order in which they matter, and in words. */
export const STATE_WORDS = { silent: "silent", waiting: "no row yet", online: "on line", offline: "off line", unregistered: "not registered" };
const STATES = Object.keys(STATE_WORDS);

/**
 * @typedef {Object} Source
 * @property {string} key @property {string} application @property {string} group @property {string} name
 * @property {number} handle @property {boolean} online @property {?number} lastRow
 * @property {Object} values the newest row's
 * @property {string} state of STATE_WORDS
 */

function stateOf(source, lastRow, key, paces, now) {
  if (!source.online) return "offline";
  if (lastRow === null) return "waiting";
  return now - lastRow > paces.limit(key) ? "silent" : "online";
}

/**
 * @typedef {Object} Group
 * @property {string} key @property {Object} application as the server told it
 * @property {string} name @property {Array} attributes @property {Source[]} sources troubled ones first
 */

/** @returns {Group[]} of what the server told, those with silent sources first; `paces` learn */
export function groupsOf(applications, paces, now) {
  const groups = [];
  for (const application of applications) {
    for (const group of application.groups) {
      const sources = group.sources.map((source) => {
        const key = JSON.stringify([application.name, group.name, source.name]);
        const lastRow = parseTime(source.last_row);
        paces.see(key, lastRow);
        return {
          key, application: application.name, group: group.name, name: source.name, handle: source.handle,
          online: source.online, lastRow, values: source.values ?? {},
          state: stateOf(source, lastRow, key, paces, now),
        };
      });
      groups.push({
        key: JSON.stringify([application.name, group.name]),
        application, name: group.name, attributes: group.attributes, sources: sources.sort(byUrgency),
      });
    }
  }
  const troubled = (group) => (group.sources[0]?.state === "silent" ? 0 : 1);
  return groups.sort((a, b) => troubled(a) - troubled(b) || compare(a.application.name, b.application.name) || compare(a.name, b.name));
}

/** @returns {Group} what is not registered now, as its kept rows tell */
export function keptGroup(application, group, { columns, rows }) {
  const sources = new Map();
  for (const [, time, name, handle, , ...values] of rows) {
    sources.set(name, { key: name, application, group, name, handle, online: false, lastRow: time,
      values: Object.fromEntries(values.map((value, i) => [columns[FIRST_VALUE + i], value])), state: "unregistered" });
  }
  return {
    key: JSON.stringify([application, group]), name: group,
    application: { name: application, help: "Not registered at this server now; these are its newest kept rows" },
    attributes: columns.slice(FIRST_VALUE).map((name, i) =>
      ({ name, help: "", letter: rows.some((row) => typeof row[FIRST_VALUE + i] === "string") ? "D" : "N" })),
    sources: [...sources.values()].sort(byUrgency),
  };
}

/** @returns {{group: Group, source: Source}|undefined} what a place with a source names */
export function findSource(groups, { application, group: groupName, source: name }) {
  for (const group of groups) {
    if (group.application.name !== application || group.name !== groupName) continue;
    const source = group.sources.find((each) => each.name === name);
    if (source) return { group, source };
  }
  return undefined;
}

const collator = new Intl.Collator("en", { numeric: true });
const compare = (a, b) => collator.compare(a, b);

function byUrgency(a, b) {
  return STATES.indexOf(a.state) - STATES.indexOf(b.state) || compare(a.name, b.name);
}

/** The number of all sources, and of those in each state. */
export function countStates(groups) {
  const counts = { all: 0, silent: 0, waiting: 0, online: 0, offline: 0, unregistered: 0 };
  for (const group of groups) {
    for (const source of group.sources) {
      ++counts.all;
      ++counts[source.state];
    }
  }
  return counts;
}

/**
 * @returns {Group[]} what of them a place shows: every word found in the names of application, group
 * and source or of an attribute; groups without sources only when nothing is searched for
 */
export function chosenGroups(groups, { application, group: groupName, find, show }) {
  const words = find.toLowerCase().split(/\s+/).filter(Boolean);
  const chosen = [];
  for (const group of groups) {
    if (application !== null && group.application.name !== application) continue;
    if (groupName !== null && group.name !== groupName) continue;
    const names = `${group.application.name}\n${group.name}\n${group.attributes.map((each) => each.name).join("\n")}`.toLowerCase();
    const left = words.filter((word) => !names.includes(word));
    const sources = group.sources.filter((source) =>
      (!show || source.state === show) && left.every((word) => source.name.toLowerCase().includes(word)));
    if (sources.length || (!show && !left.length)) chosen.push({ ...group, sources });
  }
  return chosen;
}
