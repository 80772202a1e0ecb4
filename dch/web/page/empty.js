// empty.js: what to do next where there is nothing to show.

import { commandToCopy, h } from "./dom.js";

const FIRST_ROW = `cat >demo.reg <<'END'
appl:DEMO,DMO; group:load; attr:load1,G,4; attr:note,T,20;
END
printf 'load1,note\\n17,all quiet\\n' |
  zordp send --registration demo.reg --group load --source web1 --keep`;

const note = (title, ...children) => h("section", { class: "empty" }, h("h2", {}, title), ...children);
const paragraph = (...children) => h("p", {}, ...children);

/** No application is registered. */
export const noApplication = () => note("No application is registered",
  paragraph("The server is up and waits. Providers register their applications themselves; to see it work, send a row:"),
  commandToCopy(FIRST_ROW),
  paragraph("With another port than 1919, set ZORA_DCH_PORT first. The row appears here by itself. A provider that ends takes its application off the list; --keep keeps it there."));

/** The application, group or source of the address is not there. */
export const notFound = (names) => note(`There is no ${names.join(" / ")}`,
  paragraph("It is not registered at this server now, or the address has a mistake. Rows that were kept of a source are at the source's address, or its group's. What is there:"),
  commandToCopy("zordc apps"),
  paragraph(h("a", { href: "#" }, "All applications")));

/** A group is registered, but no source of it ever came on line. */
export const noSource = (application, group) => h("div", { class: "empty small" },
  paragraph(`No source of ${application} / ${group} came on line yet. To send a row as one:`),
  commandToCopy(`zordp send --registration FILE.reg --group ${shellWord(group)} --source NAME --keep --input FILE.csv`));

/** The search has no result. */
export const nothingFound = (find) => note(find ? `Nothing is called “${find}”` : "No source is in that state",
  paragraph(find ? "The search looks at the names of applications, groups, sources and attributes; every word has to be there." : "That is good news."),
  paragraph(h("a", { href: "#" }, "Show all applications")));

/** The server keeps no rows. */
export const noStore = () => h("div", { class: "empty small", id: "no-store" },
  paragraph("This server keeps no rows: plots begin when the page is opened. To keep history, start it with a state file:"),
  commandToCopy(`zordchd --store FILE --web ${location.host}`));

/** A group has text attributes only. */
export const noNumber = (application) => h("div", { class: "empty small" },
  paragraph("This group has no attribute that is a number, so there is nothing to plot. Its attributes:"),
  commandToCopy(`zordc attrs ${shellWord(application)}`));

/** No row in the range. @param {string} words of the range */
export const noRows = (words) => `No row in ${words === "all that is kept" ? "what is kept" : "the " + words}.`;

const shellWord = (text) => (/^[\w.+-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);
