// dom.js: elements. Text only ever becomes text.

/**
 * An element with its children, null and undefined ones left out.
 * @param {Object} attributes functions listen to the event of that name ("click"); false, null: left out
 */
export function h(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") element.addEventListener(name, value);
    else if ((value ?? false) !== false) element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter((child) => (child ?? null) !== null));
  return element;
}

/** Sets a text where it differs, so that nothing is drawn or read out anew without need. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/** Sets or takes away an attribute where it differs. */
export function setAttribute(element, name, value) {
  if (value === null || value === false) element.removeAttribute(name);
  else if (element.getAttribute(name) !== String(value)) element.setAttribute(name, String(value));
}

const keyed = new WeakMap(); // parent → key → child

/**
 * Makes a parent's children those of the items, in their order; keeps elements whose key stays, so
 * that focus and selection stay, too.
 * @param {HTMLElement} parent has no other children
 * @param {function} keyOf of an item
 * @param {function} create makes an item's element
 * @param {function=} update (element, item): called for new elements, too
 */
export function reconcile(parent, items, keyOf, create, update = () => {}) {
  const before = keyed.get(parent) ?? new Map();
  const after = new Map();
  let next = parent.firstElementChild;
  for (const item of items) {
    const key = keyOf(item);
    if (after.has(key)) continue;
    const element = before.get(key) ?? create(item);
    before.delete(key);
    after.set(key, element);
    update(element, item);
    if (element === next) next = next.nextElementSibling;
    else parent.insertBefore(element, next);
  }
  for (const element of before.values()) element.remove();
  keyed.set(parent, after);
}

/** A command and a button that copies it. */
export function commandToCopy(command) {
  const button = h("button", { type: "button", class: "quiet", "aria-label": `Copy the command ${command.split("\n")[0]}` }, "Copy");
  button.addEventListener("click", async () => {
    try {
      await navigator.clipboard.writeText(command);
      button.textContent = "Copied";
    } catch {
      // Without https a browser may keep the clipboard to itself: select it for Ctrl-C.
      getSelection().selectAllChildren(code);
      button.textContent = "Selected";
    }
    setTimeout(() => { button.textContent = "Copy"; }, 2000);
  });
  const code = h("code", {}, command);
  return h("div", { class: "command" }, h("pre", { tabindex: "0" }, code), button);
}
