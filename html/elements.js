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

// "3 of 10,000 tables", or "10,000 tables" for all of them.
function counted_part(part, all, noun) {
    return part === all ? counted(all, noun) : `${part.toLocaleString("en")} of ${counted(all, noun)}`;
}

// What is looked for: lower-case words, all of which have to be found.
function filter_words(text) {
    return text.toLowerCase().split(/\s+/).filter(Boolean);
}

const name_order = new Intl.Collator(undefined, {numeric: true});

// A press on the title of a column: up, down, and the third time as the server wrote it (`column` -1).
function turn_sort(view, column) {
    const again = column === view.column;
    view.column = again && view.down ? -1 : column;
    view.down = again && !view.down;
}

// For a title's aria-sort.
function sort_state(view, column) {
    return column !== view.column ? "none" : view.down ? "descending" : "ascending";
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
