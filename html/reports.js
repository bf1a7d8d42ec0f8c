"use strict";

// The reports page: who may do what. The server leaves its body empty; everything here is read from the rights page of
// one user after the other, and then filtered, shown, saved and printed without the server.

// How much is drawn at once, on the screen and on paper, where so many users have room beside one another; how many of
// each are in the list of views; and what spreadsheets read.
const report_sizes = {
    screen: {tables: 100, users: 50, list: 300, columns: 50},
    print: {tables: 1000, users: 60, list: 5000, columns: 10},
    choices: 200,
    csv_lines: 1000000,
};

// What was gathered last; it stays while other pages are shown. users are the names to read, public first; masks has for
// each of them that has been read one byte for each table, bit 0 for select to bit 3 for delete. begun and ended are the
// times of the first and of the last answer.
let gathered = null;

// The reports page that was opened last: its elements and what is chosen on it. Tables and users are numbers everywhere,
// their places in `gathered`; table and user are -1 where none is chosen.
let report_view = null;

addEventListener("beforeprint", () => print_report(true));
addEventListener("afterprint", () => print_report(false));


function reports_page(page) {
    report_view?.stop.abort();
    if (gathered?.datasource !== page.datasource)
        gathered = null;
    const view = {datasource: page.datasource, report: null, table: -1, user: -1, column: -1, down: false,
        stop: new AbortController()};
    view.tables = report_axis(view, "table");
    view.users = report_axis(view, "user");
    view.choice = element("select", {onchange: () => choose_listed(view)});
    view.count = element("output", {class: "count", "aria-live": "polite"});
    view.tools = element("div", {class: "tools", role: "group", "aria-label": "Tools for the report"},
        view.tables.controls, view.users.controls, element("label", {}, "Show ", view.choice), view.count,
        report_button("Save as CSV", () => save_report(view)), report_button("Print", () => print()),
        view.tables.pager, view.users.pager);
    view.steps = element("p", {class: "actions"});
    view.state = element("p", {class: "status", role: "status"});
    view.body = element("div");
    view.section = element("section", {class: "report"}, element("h2", {}, "Who may do what"),
        element("p", {class: "how_to"}, "Gather reads what each listed user holds, one after the other, and shows it " +
            "together; nothing is changed. Press the name of a table or a user to see it alone."),
        element("p", {}, "What everybody holds is shown under public only. What a user may do in another way, as the " +
            "administrator or through a role, is not shown."),
        view.steps, view.state, view.tools, view.body);
    page.form.after(view.section);
    report_view = view;
    show_gathered(view);
    return {};
}

function report_button(label, onclick, name = null) {
    return element("button", {type: "button", class: name, onclick}, label);
}

// The controls for the tables or the users; `first` is the place in what matches of the first one that is drawn.
function report_axis(view, noun) {
    const axis = {noun, first: 0, size: 0, pages: element("span")};
    const draw = () => draw_from_start(view);
    const turn = (pages, other) => {
        axis.first += pages * axis.size;
        draw_report(view);
        // At the end the pressed button is switched off and would lose the focus to nowhere.
        if (document.activeElement.disabled)
            other.focus();
    };
    axis.filter = element("input", {type: "search", autocomplete: "off", spellcheck: "false", oninput: draw});
    axis.only = element("input", {type: "checkbox", checked: true, onchange: draw});
    axis.controls = element("div", {class: "axis"}, element("label", {class: "filter"}, `Filter ${noun}s `, axis.filter),
        element("label", {}, axis.only, ` Only ${noun}s with a privilege`));
    axis.back = report_button(`Previous ${noun}s`, () => turn(-1, axis.on));
    axis.on = report_button(`Next ${noun}s`, () => turn(1, axis.back));
    axis.pager = element("p", {class: "pager"}, axis.pages, " ", axis.back, " ", axis.on);
    return axis;
}

function new_report(datasource) {
    return {datasource, users: ["public"], unread: [], tables: [], unshown: 0, places: new Map(), masks: [],
        begun: new Date(), ended: null};
}

// Reads on where the report ends, until it is complete, stopped, or something does not work.
async function gather(view, report) {
    const stop = view.stop = new AbortController();
    const begun = {time: Date.now(), done: report.masks.length};
    const progress = element("progress", {max: "1", value: "0"});
    const text = element("span");
    clear_notices();
    set_steps(view, element("label", {}, text, " ", progress), report_button("Stop", () => stop.abort()));
    let problem = "";
    while (!problem && !stop.signal.aborted && report.masks.length < report.users.length) {
        text.textContent = progress_text(report, begun);
        progress.value = report.masks.length / report.users.length;
        problem = await gather_user(report, stop.signal);
        if (!view.section.isConnected)
            stop.abort();
    }
    // A new attempt that has come to nothing does not cost the report of before.
    if (report.masks.length && report.datasource === report_view.datasource)
        gathered = report;
    // The page may have been left meanwhile, or come anew.
    if (report_view.section.isConnected)
        show_gathered(report_view);
    if (problem && view.section.isConnected)
        notice("bad", problem, [`data source: ${report.datasource}`, `user: ${report.users[report.masks.length]}`]);
}

// Until the first answer tells who there is, only public is known.
function progress_text(report, begun) {
    const [done, all] = [report.masks.length, report.users.length];
    if (!report.ended)
        return "Reading who there is";
    const minutes = (Date.now() - begun.time) / (done - begun.done) * (all - done) / 60000;
    const left = done - begun.done < 3 ? "" : minutes < 1 ? ", less than a minute left"
        : `, about ${counted(Math.ceil(minutes), "minute")} left`;
    return `${done.toLocaleString("en")} of ${counted(all, "user")}${left}`;
}

// Reads the next user. Gives "" or why that did not work.
async function gather_user(report, signal) {
    const user = report.users[report.masks.length];
    const answer = await request_page(view_fields(report, "rights", user), signal);
    const {text} = answer;
    if (signal.aborted)
        return "";
    if (answer.problem)
        return explained(answer);
    const rights = read_rights(text);
    if (!report.ended)
        for (const name of rights.users.filter(name => name !== "public"))
            report[has_exact_name(name) ? "users" : "unread"].push(name);
    // Their rows have blanks in place of the boxes.
    const blanks = text.match(/<td bgcolor=#FFFFFF align=center nowrap><font size=2>\n&nbsp;/g) ?? [];
    report.unshown = blanks.length / privileges.length;
    report.ended = new Date();
    if (rights.user === user)
        report.masks.push(masks_of(report, rights.tables));
    else
        report.unread.push(...report.users.splice(report.masks.length, 1));
    return "";
}

function masks_of(report, tables) {
    const places = tables.map(table => place_of(report, table));
    const masks = new Uint8Array(report.tables.length);
    tables.forEach((table, i) => table.held.forEach((held, bit) => masks[places[i]] |= held << bit));
    return masks;
}

// A table that has come since the first user was read is put behind the others.
function place_of(report, named) {
    const id = table_id(named);
    if (!report.places.has(id)) {
        const names = [named.catalog, named.schema, named.table];
        const label = names.filter(Boolean).join(".");
        report.places.set(id, report.tables.length);
        report.tables.push({names, label, text: label.toLowerCase()});
    }
    return report.places.get(id);
}

// Replaces the buttons; a focus among them stays there.
function set_steps(view, ...steps) {
    const focused = view.steps.contains(document.activeElement);
    view.steps.replaceChildren(...steps);
    if (focused)
        view.steps.querySelector("button").focus();
}

function show_gathered(view) {
    const left = gathered ? gathered.users.length - gathered.masks.length : 0;
    set_steps(view, ...(left ? [report_button("Continue", () => gather(view, gathered))] : []),
        report_button(gathered ? "Gather again" : "Gather", () => gather(view, new_report(view.datasource))));
    view.tools.hidden = view.state.hidden = !gathered;
    if (!gathered)
        return;
    view.state.replaceChildren(...state_texts(left));
    // The numbers mean others in another report.
    if (view.report !== gathered)
        Object.assign(view, {report: gathered, table: -1, user: -1});
    order_tables(view);
    draw_from_start(view);
}

function state_texts(left) {
    const {datasource, users, unread, unshown} = gathered;
    const [from, to] = [gathered.begun, gathered.ended].map(date =>
        date.toLocaleString("en-GB", {dateStyle: "long", timeStyle: "short"}));
    return [
        left ? element("strong", {}, `Incomplete: ${counted_part(left, users.length, "user")} not read yet. `) : "",
        `Data source ${datasource}, read ${from === to ? `on ${to}` : `from ${from} to ${to}`}.`,
        unread.length ? ` Not read, because the pages cannot ask for such a name: ${unread.join(", ")}.` : "",
        unshown ? ` Without ${counted(unshown, "table")} whose names are too long for the pages.` : "",
    ];
}

function sort_report(view, column) {
    turn_sort(view, column);
    order_tables(view);
    draw_from_start(view);
    view.body.querySelectorAll("thead button")[column].focus();
}

function order_tables(view) {
    const name = table => gathered.tables[table].names[view.column];
    view.order = [...gathered.tables.keys()];
    if (view.column >= 0)
        view.order.sort((a, b) => (view.down ? -1 : 1) * name_order.compare(name(a), name(b)));
}

function draw_from_start(view) {
    view.tables.first = view.users.first = 0;
    draw_report(view);
}

function choose_in_report(view, table, user) {
    Object.assign(view, {table, user});
    draw_from_start(view);
}

function choose_listed(view) {
    const [kind, place] = [view.choice.value[0], Number(view.choice.value.slice(1))];
    choose_in_report(view, kind === "t" ? place : -1, kind === "u" ? place : -1);
}

// The same by a button, which is gone afterwards. Buttons do not come again on each sheet of paper.
function choosing_button(view, label, table, user) {
    return view.printing ? element("span", {}, label) : report_button(label, () => {
        choose_in_report(view, table, user);
        view.body.firstChild.focus();
    });
}

function print_report(printing) {
    if (gathered && report_view.section.isConnected)
        draw_report(report_view, printing);
}

// The tables and users that choice and filters leave. Where only those with a privilege are wanted, it has to be one that
// the others who are left hold.
function report_matches(view) {
    const tables = view.table >= 0 ? [view.table] : matching_tables(view);
    const users = view.user >= 0 ? [view.user] : matching_users(view);
    const held = new Uint8Array(gathered.tables.length);
    const holders = users.filter(user => {
        const masks = gathered.masks[user];
        let any = 0;
        for (const table of tables) {
            held[table] |= masks[table];
            any |= masks[table];
        }
        return any;
    });
    return {
        tables: view.tables.only.checked && view.table < 0 ? tables.filter(table => held[table]) : tables,
        users: view.users.only.checked && view.user < 0 ? holders : users,
    };
}

function matching_tables(view) {
    const words = filter_words(view.tables.filter.value);
    return view.order.filter(table => words.every(word => gathered.tables[table].text.includes(word)));
}

function matching_users(view) {
    const words = filter_words(view.users.filter.value);
    return [...gathered.masks.keys()].filter(user =>
        words.every(word => gathered.users[user].toLowerCase().includes(word)));
}

// In print everything that matches is drawn, within reason.
function draw_report(view, printing = false) {
    view.printing = printing;
    const sizes = printing ? report_sizes.print : report_sizes.screen;
    const matches = report_matches(view);
    const drawn = {
        tables: drawn_part(view.tables, matches.tables, sizes.tables, printing),
        users: drawn_part(view.users, matches.users, view.table < 0 ? sizes.users : sizes.list, printing),
    };
    view.count.textContent = [view.table < 0 && counted_part(matches.tables.length, gathered.tables.length, "table"),
        view.user < 0 && counted_part(matches.users.length, gathered.masks.length, "user")].filter(Boolean).join(", ");
    list_choices(view);
    const is_part = view.table >= 0 || view.user >= 0;
    view.body.replaceChildren(element("h3", {tabindex: "-1"}, report_title(view)),
        ...(is_part && !printing ? [choosing_button(view, "All tables and users", -1, -1)] : []),
        element("p", {class: "report_filters"}, report_remarks(view, matches, drawn, printing)),
        ...(drawn.tables.length && drawn.users.length ? drawn_tables(view, drawn, sizes.columns) : []));
}

// The part of what matches that is drawn now.
function drawn_part(axis, matches, size, printing) {
    if (printing)
        return matches.slice(0, size);
    axis.size = size;
    const last = Math.min(axis.first + size, matches.length);
    axis.pager.hidden = matches.length <= size;
    axis.pages.textContent = `${(axis.first + 1).toLocaleString("en")} to ${last.toLocaleString("en")} of ` +
        counted(matches.length, axis.noun);
    axis.back.disabled = !axis.first;
    axis.on.disabled = last === matches.length;
    return matches.slice(axis.first, last);
}

function list_choices(view) {
    const option = (kind, place) =>
        element("option", {value: kind + place}, kind === "t" ? table_label(place) : user_label(place));
    const group = (label, kind, places) => element("optgroup", {label},
        ...places.slice(0, report_sizes.choices).map(place => option(kind, place)),
        places.length > report_sizes.choices ? element("option", {disabled: true}, "Filter for the others") : null);
    view.choice.replaceChildren(element("option", {value: ""}, "All tables and users"),
        group("Who holds what on", "t", matching_tables(view)), group("What is held by", "u", matching_users(view)));
    const chosen = view.table >= 0 ? ["t", view.table] : view.user >= 0 ? ["u", view.user] : [];
    view.choice.value = chosen.join("");
    // The chosen one need not be among those that the filters leave.
    if (view.choice.selectedIndex < 0) {
        view.choice.append(option(...chosen));
        view.choice.value = chosen.join("");
    }
}

function table_label(table) {
    return gathered.tables[table].label;
}

function user_label(user) {
    return gathered.users[user] === "public" ? "public (everybody)" : gathered.users[user];
}

function report_title(view) {
    return view.table >= 0 ? `Who holds what on ${table_label(view.table)}`
        : view.user >= 0 ? `What ${user_label(view.user)} holds` : "Tables and users";
}

// What is left out, and why.
function report_remarks(view, matches, drawn, printing) {
    const remarks = ["public stands for everybody."];
    for (const axis of [view.tables, view.users]) {
        const [nouns, words] = [`${axis.noun}s`, filter_words(axis.filter.value)];
        const is_chosen = view[axis.noun] >= 0;
        if (!is_chosen && words.length)
            remarks.push(`Only ${nouns} that match “${words.join(" ")}”.`);
        if (!is_chosen && axis.only.checked)
            remarks.push(`Only ${nouns} with a privilege.`);
        if (printing && drawn[nouns].length < matches[nouns].length)
            remarks.push(`Only the first ${counted_part(drawn[nouns].length, matches[nouns].length, axis.noun)}.`);
        if (!matches[nouns].length)
            remarks.push(`There are no such ${nouns}.`);
    }
    return remarks.join(" ");
}

function drawn_tables(view, {tables, users}, columns) {
    const title = name => element("th", {scope: "col"}, name[0].toUpperCase() + name.slice(1));
    if (view.table >= 0)
        return [report_table("Users and what they hold", ["user", ...privileges].map(title),
            users.map(user => [user_title(view, user, "row"), ...held_cells(user, view.table)]))];
    if (view.user >= 0)
        return [report_table("Tables and what is held on them", [...name_titles(view), ...privileges.map(title)],
            tables.map(table => [...name_cells(view, table), ...held_cells(view.user, table)]))];
    const blocks = [];
    for (let first = 0; first < users.length; first += columns)
        blocks.push(matrix(view, tables, users.slice(first, first + columns)));
    return blocks;
}

function matrix(view, tables, users) {
    const cells = Array.from({length: 1 << privileges.length}, (_, mask) => matrix_cell(mask));
    return report_table(privileges.map(name => `${name[0].toUpperCase()} ${name}`).join(", "),
        [...name_titles(view), ...users.map(user => user_title(view, user, "col"))],
        tables.map(table => [...name_cells(view, table),
            ...users.map(user => cells[gathered.masks[user][table] ?? 0].cloneNode(true))]));
}

function report_table(caption, titles, rows) {
    return element("div", {class: "matrix", role: "region", "aria-label": caption, tabindex: "0"},
        element("table", {}, element("caption", {}, caption), element("thead", {}, element("tr", {}, ...titles)),
            element("tbody", {}, ...rows.map(cells => element("tr", {}, ...cells)))));
}

// A letter for each privilege on the screen, its name for who listens.
function matrix_cell(mask) {
    const names = privileges.filter((_, bit) => mask >> bit & 1);
    if (!names.length)
        return element("td");
    return element("td", {class: "held", title: names.join(", ")},
        element("span", {"aria-hidden": "true"}, names.map(name => name[0].toUpperCase()).join("")),
        element("span", {class: "spoken"}, names.join(", ")));
}

function held_cells(user, table) {
    return yes_or_empty(gathered.masks[user][table]).map(text => element("td", {class: "held"}, text));
}

function yes_or_empty(mask) {
    return privileges.map((_, bit) => mask >> bit & 1 ? "yes" : "");
}

function name_titles(view) {
    return ["Catalog", "Schema", "Table"].map((title, column) => element("th", {scope: "col",
        "aria-sort": sort_state(view, column)},
        view.printing ? title : report_button(title, () => sort_report(view, column), "sort")));
}

function name_cells(view, table) {
    const [catalog, schema, name] = gathered.tables[table].names;
    return [element("td", {}, catalog), element("td", {}, schema),
        element("th", {scope: "row"}, choosing_button(view, name, table, -1))];
}

function user_title(view, user, scope) {
    return element("th", {scope, class: scope === "col" ? "upright" : null},
        choosing_button(view, user_label(user), -1, user));
}

// Saves one line for each user and table with a privilege of what choice and filters leave.
function save_report(view) {
    const {tables, users} = report_matches(view);
    const tables_cells = tables.map(table => gathered.tables[table].names.map(csv_cell).join(","));
    const lines = [["user", "catalog", "schema", "table", ...privileges].join(",")];
    for (const user of users) {
        const masks = gathered.masks[user];
        const user_cell = csv_cell(gathered.users[user]);
        tables.forEach((table, i) => masks[table] &&
            lines.push([user_cell, tables_cells[i], ...yes_or_empty(masks[table])].join(",")));
        if (lines.length > report_sizes.csv_lines)
            return notice("bad", "Not saved: spreadsheets read no more than " +
                `${counted(report_sizes.csv_lines, "line")}. Filter tables or users.`);
    }
    const file = csv_name();
    // The mark at the beginning tells spreadsheets that it is UTF-8.
    save_file(file, "text/csv", `\uFEFF${lines.join("\r\n")}\r\n`);
    const guarded = users.some(user => starts_formula(gathered.users[user])) ||
        tables.some(table => gathered.tables[table].names.some(starts_formula));
    notice("good", `${counted(lines.length - 1, "line")} saved as ${file}.`, guarded ? ["An apostrophe stands before " +
        "names that begin with = + - @, a tab or a line end: spreadsheets would take them for formulas."] : []);
}

function csv_cell(text) {
    const safe = starts_formula(text) ? `'${text}` : text;
    return /[",\r\n]/.test(safe) ? `"${safe.replaceAll('"', '""')}"` : safe;
}

function starts_formula(text) {
    return /^[=+\-@\t\r\n]/.test(text);
}

function csv_name() {
    const {datasource, ended, users, masks} = gathered;
    // Sweden writes dates as in ISO 8601.
    const date = ended.toLocaleDateString("sv-SE");
    const incomplete = masks.length < users.length ? "-incomplete" : "";
    return `rights-${datasource.replace(/[^\p{L}\p{N}._-]+/gu, "_")}-${date}${incomplete}.csv`;
}

// Lets the browser save a file.
function save_file(name, type, text) {
    const address = URL.createObjectURL(new Blob([text], {type}));
    element("a", {href: address, download: name}).click();
    // A browser may read it only after this procedure has ended.
    setTimeout(() => URL.revokeObjectURL(address), 60000);
}
