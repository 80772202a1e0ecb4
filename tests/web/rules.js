// rules.js: rules that the page has to keep so that everybody can use it. Each answers what breaks it.

globalThis.pageRules = (() => {
  const isShown = (element) => element.checkVisibility({ visibilityProperty: true, opacityProperty: true });
  const all = (selector) => [...document.querySelectorAll(selector)].filter(isShown);
  const told = (element) => element.outerHTML.slice(0, 160);

  const CONTROLS = "a[href], button, input, select, textarea, summary, [tabindex='0']";

  function nameOf(element) {
    const label = element.getAttribute("aria-label");
    if (label) return label.trim();
    const by = element.getAttribute("aria-labelledby");
    if (by) return by.split(" ").map((id) => document.getElementById(id)?.textContent ?? "").join(" ").trim();
    if (element.labels?.length) return element.labels[0].textContent.trim();
    return element.textContent.trim();
  }

  function channels(colour) {
    const canvas = channels.canvas ??= new OffscreenCanvas(1, 1).getContext("2d", { willReadFrequently: true });
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = colour;
    canvas.fillRect(0, 0, 1, 1);
    const [red, green, blue, alpha] = canvas.getImageData(0, 0, 1, 1).data;
    return [red, green, blue, alpha / 255];
  }

  const over = (top, bottom) => [0, 1, 2].map((i) => top[i] * top[3] + bottom[i] * (1 - top[3])).concat(1);

  function groundOf(element) {
    const layers = [];
    for (let each = element; each; each = each.parentElement) layers.push(channels(getComputedStyle(each).backgroundColor));
    return layers.reduceRight((ground, layer) => over(layer, ground), [255, 255, 255, 1]);
  }

  function luminance([red, green, blue]) {
    const [r, g, b] = [red, green, blue].map((each) => {
      const part = each / 255;
      return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
    });
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  }

  function contrast(element) {
    const ground = groundOf(element);
    const text = over(channels(getComputedStyle(element).color), ground);
    const [light, dark] = [luminance(text), luminance(ground)].sort((a, b) => b - a);
    return (light + 0.05) / (dark + 0.05);
  }

  const hasOwnText = (element) => [...element.childNodes].some((node) => node.nodeType === Node.TEXT_NODE && node.data.trim());

  return {
    unnamedControls: () => all(`${CONTROLS}, [role=slider], [role=region], nav, section[aria-labelledby], table`)
      .filter((each) => !(each.matches("table") ? each.caption?.textContent.trim() : nameOf(each))).map(told),

    paleTexts: () => all("body *").filter((each) => hasOwnText(each) && !each.closest(".unseen, .skip, noscript, script"))
      .map((each) => [contrast(each), each]).filter(([ratio]) => ratio < 4.5).map(([ratio, each]) => `${ratio.toFixed(2)} ${told(each)}`),

    headingsOutOfOrder() {
      const levels = all("h1, h2, h3, h4, h5, h6").map((each) => [Number(each.tagName[1]), each]);
      const wrong = levels.filter(([level], i) => i > 0 && level > levels[i - 1][0] + 1);
      if (levels.filter(([level]) => level === 1).length !== 1) wrong.push([1, document.body]);
      return wrong.map(([, each]) => told(each));
    },

    picturesWithoutText: () => all("img, canvas, svg").filter((each) => {
      const holder = each.closest("[role=slider], [role=img]");
      return !(each.alt || (holder && nameOf(holder) && holder.getAttribute("aria-valuetext")));
    }).map(told),

    tablesWithoutHeaders: () => all("table").filter((table) =>
      [...table.querySelectorAll("thead th")].some((each) => each.scope !== "col") || !table.querySelector("thead th") ||
      [...table.tBodies[0].rows].some((row) => row.cells[0].scope !== "row")).map(told),

    landmarksMissing: () => (document.getElementById("login") ? ["main"] : ["header", "main", "aside", "[role=search]"])
      .filter((each) => document.querySelectorAll(each).length !== 1),

    doubleIds() {
      const ids = [...document.querySelectorAll("[id]")].map((each) => each.id);
      return ids.filter((id, i) => ids.indexOf(id) !== i);
    },

    unreachable: () => all(CONTROLS).filter((each) => each.tabIndex < 0 && !each.disabled).map(told),

    /** What has the focus: null for nothing. */
    focused() {
      const element = document.activeElement;
      if (!element || element === document.body) return null;
      const style = getComputedStyle(element);
      const box = element.getBoundingClientRect();
      const order = [...document.querySelectorAll("*")].indexOf(element);
      const before = pageRules.last;
      pageRules.last = box;
      return {
        name: told(element), order,
        isSeen: style.outlineStyle !== "none" && parseFloat(style.outlineWidth) >= 1 && box.width > 0 && box.bottom > 0 && box.top < innerHeight,
        // Not to a place that is left of and above what one read before, in the same column.
        isAfter: !before || box.bottom > before.top - 1 || box.left > before.right - 1 || scrollY > 0,
      };
    },
    last: null,
  };
})();
