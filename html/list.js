// The long lists: filtered as one types, sorted, drawn piece by piece.
//
// Only the rows that match are in the document, and of those only as many as one has scrolled to: a browser needs seconds
// to lay out ten thousand rows. The rest wait in the records, with their controls as they are.
"use strict";

const rows_drawn = 100;

// What was filtered and sorted, by the list's noun, so that it is the same again in the page that answers a submission.
const kept_views = {};

// Makes a list of the page's inner table. Options:
//   table    whose first row holds the titles
//   records  {row, text, controls}: the row itself, the lower-case text that the filter looks in, the controls to be watched
//   columns  for each column {title, key(record)}, where the key is what to sort by, or null
//   noun     "table", "user"
//   filters  [{label, test(record)}]
//   place    the element before which the tools are put
//   dress    called with a record before its row is drawn, each time
// Gives {table, records, tools, shown(), redraw(), show_state(), draw_all()}; shown() are the records that match now, in the
// order of the screen.
function make_list({table, records, columns, noun, filters = [], place, dress = () => {}}) {
    const view = kept_views[noun] ??= {text: "", filters: new Set(), column: -1, down: false};
    const list = {table, records, columns, noun, dress, view, matching: [], drawn: 0};
    list.editable = records.some(record => record.controls?.length);
    list.filters = list.editable ? [...filters, {label: "Only changed", test: record => record.controls.some(changed)}] : filters;
    list.shown = () => list.matching;
    list.redraw = () => redraw(list);
    list.show_state = () => show_state(list);
    list.draw_all = () => draw_rows(list, list.matching.length);
    list.body = table.tBodies[0] ?? table.createTBody();
    add_titles(list);
    add_tools(list, place);
    list.more = more_row(list);
    page_lists.push(list);
    redraw(list);
    return list;
}

function add_titles(list) {
    const titles = list.body.rows[0];
    const cells = [...titles.cells].map((cell, at) => {
        const title = cell.textContent.trim();
        const column = list.columns[at];
        return element("th", {scope: "col", "data-title": column ? title : null}, column
            ? element("button", {type: "button", class: "sort", onclick: () => sort_by(list, at)}, title)
            : title);
    });
    list.titles = element("tr", {}, ...cells);
    list.table.createTHead().append(list.titles);
    titles.remove();
}

function add_tools(list, place) {
    const filter = element("input", {type: "search", value: list.view.text, autocomplete: "off", spellcheck: "false",
        oninput: event => look_for(list, event.target.value)});
    list.count = element("output", {class: "count", "aria-live": "polite"});
    list.tools = element("div", {class: "tools", role: "group", "aria-label": `Tools for the list of ${list.noun}s`},
        element("label", {class: "filter"}, `Filter ${list.noun}s `, filter), ...list.filters.map(filter_box, list), list.count);
    if (list.editable)
        list.tools.append(...undo_buttons(list));
    place.before(list.tools);
}

function filter_box(filter) {
    const box = element("input", {type: "checkbox", checked: this.view.filters.has(filter.label), onchange: () => {
        this.view.filters[box.checked ? "add" : "delete"](filter.label);
        redraw(this);
    }});
    return element("label", {}, box, ` ${filter.label}`);
}

function undo_buttons(list) {
    list.undo = element("button", {type: "button", onclick: undo}, "Undo");
    list.undo_all = element("button", {type: "button", onclick: undo_all}, "Undo all");
    return [list.undo, list.undo_all];
}

function look_for(list, text) {
    list.view.text = text;
    redraw(list);
}

function sort_by(list, at) {
    turn_sort(list.view, at);
    redraw(list);
}

// Draws the list anew: after a change of what is looked for, or of the records.
function redraw(list) {
    const {view} = list;
    const words = filter_words(view.text);
    const tests = list.filters.filter(filter => view.filters.has(filter.label)).map(filter => filter.test);
    list.matching = list.records.filter(record =>
        words.every(word => record.text.includes(word)) && tests.every(test => test(record)));
    sort_records(list);
    draw_rows(list, rows_drawn);
    show_state(list);
}

function sort_records({matching, columns, view, titles}) {
    for (const [at, title] of [...titles.cells].entries())
        title.setAttribute("aria-sort", sort_state(view, at));
    const key = columns[view.column]?.key;
    if (!key)
        return;
    const keyed = matching.map(record => [key(record), record]);
    const sign = view.down ? -1 : 1;
    keyed.sort(([a], [b]) => sign * (typeof a === "number" ? a - b : name_order.compare(a, b)));
    matching.splice(0, matching.length, ...keyed.map(([, record]) => record));
}

function draw_rows(list, count) {
    list.drawn = 0;
    list.body.replaceChildren(...next_rows(list, count));
    if (!list.drawn)
        list.body.append(element("tr", {class: "none"}, element("td", {colspan: String(list.columns.length)},
            list.records.length ? `No ${list.noun} matches.` : `There are no ${list.noun}s.`)));
    show_more_row(list);
}

function next_rows(list, count) {
    const next = list.matching.slice(list.drawn, list.drawn + count);
    next.forEach(list.dress);
    list.drawn += next.length;
    return next.map(record => record.row);
}

function show_more_row(list) {
    const left = list.matching.length - list.drawn;
    list.more.querySelector("button").textContent = `Show more (${counted(left, list.noun)} left)`;
    if (left)
        list.body.append(list.more);
    else
        list.more.remove();
}

// The row that draws further ones when it is pressed, or comes into sight.
function more_row(list) {
    const button = element("button", {type: "button", onclick: () => draw_more(list)});
    const row = element("tr", {class: "more"}, element("td", {colspan: String(list.columns.length)}, button));
    new IntersectionObserver(entries => entries.some(entry => entry.isIntersecting) && draw_more(list),
        {rootMargin: "600px"}).observe(row);
    return row;
}

function draw_more(list) {
    list.more.before(...next_rows(list, rows_drawn));
    show_more_row(list);
}

function show_state(list) {
    const count = counted_part(list.matching.length, list.records.length, list.noun);
    const edits = list.editable ? changed_controls().length : 0;
    list.count.textContent = edits ? `${count}, ${counted(edits, "change")} not submitted` : count;
    if (list.editable) {
        const pressed = [list.undo, list.undo_all].includes(document.activeElement);
        list.undo.disabled = !steps.length;
        list.undo_all.disabled = !edits;
        // A button that is switched off would lose the focus to nowhere.
        if (pressed && document.activeElement.disabled)
            (steps.length ? list.undo : list.tools.querySelector("input")).focus();
    }
}
