// Small things that all scripts of the pages use.
"use strict";

// A new element. A property of `attributes` that is a function becomes a listener ({onclick: f}), null and false leave an
// attribute out, true sets it empty. Children are nodes or texts; null ones are left out.
function element(tag, attributes = {}, ...children) {
    const made = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (typeof value === "function")
            made.addEventListener(name.slice(2), value);
        else if (value !== null && value !== false)
            made.setAttribute(name, value === true ? "" : value);
    }
    made.append(...children.filter(child => child !== null));
    return made;
}

// "1 table", "3 tables", "10,000 tables".
function counted(count, noun) {
    return `${count.toLocaleString("en")} ${noun}${count === 1 ? "" : "s"}`;
}

// Puts the text on the clipboard; gives a promise of whether that worked. Pages that come over plain http from another
// host have no navigator.clipboard.
async function copy_text(text) {
    try {
        await navigator.clipboard.writeText(text);
        return true;
    } catch {
        return copy_selection(text);
    }
}

function copy_selection(text) {
    const field = element("textarea", {readonly: true, "aria-hidden": "true"}, text);
    const focused = document.activeElement;
    // Behind an open dialog nothing can be selected.
    (document.querySelector("dialog[open]") || document.body).append(field);
    field.select();
    const copied = document.execCommand("copy");
    field.remove();
    focused?.focus();
    return copied;
}
