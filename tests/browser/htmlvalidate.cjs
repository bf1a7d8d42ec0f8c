// What the templates are held to: everything that html-validate knows for whole documents, except
module.exports = {
    root: true,
    extends: ["html-validate:recommended", "html-validate:document"],
    rules: {
        // The server asks for the coordinates of a pressed image, which a <button> does not send, and its own buttons
        // are <input>s too.
        "prefer-button": "off",
        // Wants a <label> for buttons of the image kind as well, whose label is their alternative text. axe-core looks
        // at the labels in the finished page.
        "input-missing-label": "off",
        // The menu comes with the heading of every page, and the style shows the one that goes with the page's hidden field.
        "heading-level": ["error", {allowMultipleH1: true}],
    },
};
