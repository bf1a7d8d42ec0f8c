// Questions and messages.
"use strict";

const items_shown = 500;

// The list, or null for none. Of a very long one the rest is only counted.
function item_list(items) {
    if (!items?.length)
        return null;
    const list = element("ul", {class: "items", tabindex: "0"}, ...items.slice(0, items_shown).map(text => element("li", {}, text)));
    if (items.length > items_shown)
        list.append(element("li", {}, `and ${counted(items.length - items_shown, "more line")}`));
    return list;
}

// Asks in a modal dialog; gives a promise of the answer. `go` names the button for yes; without it there is only one to
// close the dialog. Where a yes does damage (`danger`), the other button is the one that Enter presses.
function ask({title, text, items, go, cancel, danger, extra}) {
    // A second click or a held key that was meant for what brought up the question is no answer to it.
    const answer = value => event => {
        if (!value || event.detail < 2)
            dialog.close(value);
    };
    const pressed = event => {
        if (event.repeat && ["Enter", " "].includes(event.key))
            event.preventDefault();
    };
    const no = element("button", {type: "button", class: "cancel", autofocus: !go || danger, onclick: answer("")},
        cancel ?? (go ? "Cancel" : "Close"));
    const yes = go ? element("button", {type: "button", class: danger ? "go danger" : "go", autofocus: !danger,
        onclick: answer("yes")}, go) : null;
    const dialog = element("dialog", {"aria-labelledby": "dialog_title", onkeydown: pressed}, element("h2", {id: "dialog_title"}, title),
        text ? element("p", {}, text) : null, item_list(items), extra ?? null, element("div", {class: "actions"}, no, yes));
    document.body.append(dialog);
    dialog.showModal();
    return new Promise(resolve => dialog.addEventListener("close", () => {
        dialog.remove();
        resolve(dialog.returnValue === "yes");
    }));
}

// Shows a message on top of the page until it is closed or the next request is made. `kind` is "good", "bad" or "info".
// Gives its element.
function notice(kind, title, items) {
    const close = () => {
        message.remove();
        document.querySelector("main").focus({preventScroll: true});
    };
    const message = element("div", {class: `notice ${kind}`, role: kind === "bad" ? "alert" : "status"},
        element("p", {}, title), item_list(items),
        element("button", {type: "button", class: "close", "aria-label": "Close this message", onclick: close}, "×"));
    document.getElementById("notices").append(message);
    // What is longer than the screen is read from its beginning.
    message.scrollIntoView({block: "nearest"});
    return message;
}

function clear_notices() {
    document.getElementById("notices").replaceChildren();
}
