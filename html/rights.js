// The rights page: what its buttons would really do, asked before and looked at afterwards; columns and rows ticked at
// once; the rights of another user and of public beside those of the one shown.
"use strict";

// Whether to mark what public has, on the next pages too.
var public_shown = false;

// Takes an answer of the server before it is shown, makes its list, and gives what is needed to submit it.
function rights_page(page) {
    const view = {page, records: [], submission: button =>
        button === "submit_selection" ? selection_submission(view) : all_submission(view, button)};
    const table = page.form.querySelector(":scope > table[bgcolor='#0A1965']:not([align]) table");
    if (table)
        make_rights_list(view, table);
    watch_choosers(page);
    return view;
}

function make_rights_list(view, table) {
    view.records = rights_records(table);
    table.classList.add("rights_list");
    table.rows[0].append(element("td", {}, "Row"));
    const columns = ["catalog", "schema", "table", "grantor", "grantee"].map(name => ({key: record => record[name]}));
    columns.push(...privileges.map((_, p) => ({key: record => Number(!record.boxes[p]?.checked)})), null);
    const filters = [{label: "Only held", test: record => record.held.includes(true)}];
    const place = table.closest("form > table");
    make_paragraph(view.page.form.querySelector(":scope > strong"));
    // Behind the list they stay in sight at the window's end, as those of the users page.
    place.after(view.page.form.querySelector("[name=submit_selection]").closest("form > table"));
    const list = view.list = make_list({table, records: view.records, columns, noun: "table", filters, place,
        dress: dress_row});
    const by_row = new Map(view.records.map(record => [record.row, record]));
    privileges.forEach((privilege, p) => add_head_buttons(list.titles.cells[5 + p], privilege));
    table.addEventListener("click", ({target}) => {
        const button = target.closest("button.fill");
        if (button)
            fill_boxes(list, button, by_row.get(button.closest("tr")));
    });
    if (view.page.user !== "public")
        list.tools.append(public_toggle(view));
    list.tools.append(element("button", {type: "button", onclick: () => copy_rights(view)}, "Copy rights…"),
        element("button", {type: "button", onclick: () => show_sql(view)}, "Changes as SQL…"));
}

// Whose privileges the list shows stands between the form's tables, as text without an element of its own.
function make_paragraph(user) {
    const [before, after] = [user.previousSibling, user.nextSibling];
    const paragraph = element("p", {});
    before.before(paragraph);
    paragraph.append(before, user, after);
}

// What a cell shows, behind the line feed of its begin. A blank of its own kind stands for an empty name.
function cell_value(cell) {
    const text = cell.textContent.slice(1);
    return text === "\u00a0" ? "" : text;
}

// One record for each table. Where several have granted on it, it comes in as many rows, whose boxes are one to the
// server.
function rights_records(table) {
    const records = new Map();
    for (const row of [...table.rows].slice(1)) {
        const record = rights_record(row);
        // Of names that were cut, two can look the same.
        const id = record.boxes.length ? table_id(record) : row;
        if (records.has(id))
            merge_record(records.get(id), record);
        else
            records.set(id, record);
    }
    const all = [...records.values()];
    find_problems(all);
    return all;
}

function rights_record(row) {
    const [catalog, schema, table, grantor, grantee] = [...row.cells].slice(0, 5).map(cell_value);
    const boxes = [...row.getElementsByTagName("input")];
    const key = boxes.length ? boxes[0].name.slice(0, -"_select".length) : [catalog, schema, table].join(".");
    return {row, text: key.toLowerCase(), catalog, schema, table, key, grantor, grantee, boxes,
        held: boxes.map(box => box.checked)};
}

function merge_record(record, other) {
    if (!record.grantor.split(", ").includes(other.grantor))
        record.row.cells[3].firstChild.textContent = record.grantor += `, ${other.grantor}`;
    record.held = record.held.map((held, p) => held || other.held[p]);
    record.boxes.forEach((box, p) => box.defaultChecked = box.checked = record.held[p]);
}

// Gives each record `twins`, the tables that share its boxes to the server; `sendable`, whether the boxes can be sent;
// `problem`, why the row cannot be edited; and `name`, by which the reader knows it.
function find_problems(records) {
    const twins = new Map();
    for (const record of records)
        twins.set(record.key, [...twins.get(record.key) ?? [], ...record.boxes.length ? [record] : []]);
    for (const record of records) {
        record.twins = twins.get(record.key);
        record.name = record.twins.length > 1 ? quoted_table(record) : record.key;
        record.problem = name_problem(record.key);
        record.sendable = record.problem === "";
        if (!record.boxes.length)
            record.problem = "its name is too long";
        else if (record.twins.length > 1)
            record.problem ||= "the server cannot tell it from another table";
        record.controls = record.problem ? [] : record.boxes;
    }
}

// What a row gets when it is first drawn: of thousands most never are.
function dress_row(record) {
    if (record.row.cells.length > 9)
        return;
    record.boxes.forEach((box, p) => {
        box.disabled = record.problem !== "";
        label_box(record, p);
    });
    if (record.problem)
        record.row.cells[2].append(element("div", {class: "reason"}, `Cannot be changed here: ${record.problem}.`));
    record.row.append(element("td", {}, ...record.problem ? [] : fill_buttons(`the four boxes of ${record.name}`)));
}

function label_box(record, p) {
    const box = record.boxes[p];
    box.setAttribute("aria-label", `${privileges[p]} on ${record.name}` +
        (record.problem && `, cannot be changed here: ${record.problem}`) +
        (box.nextElementSibling ? ", granted to public" : ""));
}

// The two buttons that tick and clear several boxes at once: `what` names them.
function fill_buttons(what) {
    return [["All", "tick"], ["None", "clear"]].map(([text, value]) =>
        element("button", {type: "button", class: "fill", value, title: `${value} ${what}`}, text));
}

function add_head_buttons(head, privilege) {
    // Otherwise each cell of the column is read out with its buttons.
    head.setAttribute("aria-label", privilege);
    head.append(element("div", {}, ...fill_buttons(`${privilege} on all tables that match the filter`)));
}

// `record`: that of the button's row, none in the head.
function fill_boxes(list, button, record) {
    const p = button.closest("td, th").cellIndex - 5;
    const boxes = record ? record.controls : list.shown().flatMap(each => each.controls.slice(p, p + 1));
    change(boxes.map(box => [box, button.value === "tick"]));
}

// The buttons stay off until Refresh has shown what was chosen: until then the boxes are somebody else's.
function watch_choosers(page) {
    const note = element("p", {class: "choice", role: "status"});
    const buttons = page.form.querySelectorAll("[name=rights_grant], [name=rights_revoke], [name=submit_selection]");
    const look = () => {
        note.textContent = choice_problem(page);
        buttons.forEach(button => button.disabled = note.textContent !== "");
    };
    buttons[0]?.closest("form > table").after(note);
    page.form.querySelectorAll("select").forEach(chooser => chooser.addEventListener("change", look));
    look();
}

function choice_problem(page) {
    const [source, user] = ["datasource", "isamuser"].map(name =>
        page.form.querySelector(`select[name=${name}]`)?.value);
    if (!page.user)
        return "There is no user whose privileges could be changed.";
    if (!has_exact_name(page.user))
        return "The server cannot be asked for exactly this user. Nothing can be changed here; use SQL.";
    if (!page.users.includes(page.user))
        return `There is no user ${page.user} to be changed here. Choose another one and press Refresh.`;
    const other = source !== page.datasource ? `the data source ${source}` : user !== page.user ? user || "nobody" : "";
    return other && `You have chosen ${other}, but the list still shows ${page.user} in ${page.datasource}. ` +
        "Press Refresh to go on.";
}

// The server grants what has its box in the form and revokes the rest. Tables that share boxes get one if all of them
// hold the privilege, so that nothing is granted that nobody asked for.
function is_posted(record, p) {
    return record.sendable && record.twins.every(twin => twin.boxes[p].checked);
}

// What a submission changes, first what nobody asked for (`forced`); `p` is the privilege's place.
function pending_changes({records, page: {user}}) {
    const changes = records.flatMap(record => record.held.flatMap((held, p) => {
        if (held === is_posted(record, p))
            return [];
        const verb = held ? "revoke" : "grant";
        const text = statement(verb, privileges[p], record.name, user);
        return [{record, p, verb, text, forced: record.problem !== ""}];
    }));
    return [...changes.filter(({forced}) => forced), ...asked_of(changes)];
}

function asked_of(changes) {
    return changes.filter(({forced}) => !forced);
}

// "grant update on sales.public.orders to anna"
function statement(verb, privilege, table, user) {
    return `${verb} ${privilege} on ${table} ${verb === "grant" ? "to" : "from"} ${user}`;
}

function counted_changes(changes) {
    return ["grant", "revoke"].map(verb => [changes.filter(each => each.verb === verb).length, verb])
        .filter(([count]) => count).map(([count, verb]) => counted(count, verb)).join(" and ");
}

function selection_submission(view) {
    const {page, page: {user}, records} = view;
    const changes = pending_changes(view), asked = asked_of(changes), forced = changes.length - asked.length;
    if (!asked.length)
        return {refusal: {title: "Nothing has been changed", text: "All boxes are as they were, so nothing was sent."}};
    const names = records.flatMap(record => record.boxes.filter((_, p) => is_posted(record, p)).map(box => box.name));
    const fields = page_fields(page, "rights", user, [...new Set(names), "submit_selection"].map(name => [name, ""]));
    const length = encoded_length(encoded_form(fields));
    if (length > form_limit)
        return {refusal: selection_too_long(length, asked, user)};
    return {
        fields,
        question: {
            title: `Change the privileges of ${user}?`,
            text: `${counted_changes(changes)} in ${page.datasource}. This takes effect at once; there is no undo.` +
                (forced ? ` Not asked for, but part of every submission: ${counted(forced, "revoke")}, for the reasons ` +
                "given below. To keep these privileges, cancel and run the rest as SQL." : ""),
            items: changes.map(each => each.text + (each.forced ? ` (not asked for: ${each.record.problem})` : "")),
            go: "Submit",
            danger: forced > 0,
            extra: forced ? sql_box(asked, user) : null,
        },
        check: next => check_changes(next, changes, user),
    };
}

function selection_too_long(length, asked, user) {
    return {
        title: "Too many ticked boxes",
        text: `The form would have ${counted(length, "byte")}; ${counted(form_limit, "byte")} can be sent safely. ` +
            "The server cuts a longer one and revokes the privileges whose boxes are lost. So nothing was sent, and " +
            `nothing has changed. If ${user} is to hold everything or nothing, use Grant All or Revoke All. If not, ` +
            "run the changes as SQL:",
        extra: sql_box(asked, user),
    };
}

// Whether the changes are in the list that came back.
function check_changes(next, changes, user) {
    const after = new Map(next.page?.user === user ? next.records.map(record => [table_id(record), record]) : []);
    const problem = ({record, p, verb}) => {
        const found = after.get(table_id(record));
        return !found ? " cannot be seen in the list that came back"
            : found.held[p] === (verb === "grant") ? "" : " was refused by the database" +
                // A revoke that is accepted takes away only what its own grantor has granted.
                (verb === "revoke" ? ", or somebody else has granted it, too" : "");
    };
    const done = changes.filter(each => !problem(each));
    const verb = done.length === 1 ? "was" : "were";
    return {
        done: done.length ? `${counted_changes(done)} ${verb} carried out for ${user}.` : "",
        problems: changes.filter(problem).map(each => each.text + problem(each)),
    };
}

function all_submission(view, button) {
    const {page, page: {user}, records} = view;
    const [verb, name, deed] = button === "rights_grant"
        ? ["grant", "Grant All", `grants select, insert, update and delete to ${user}`]
        : ["revoke", "Revoke All", `takes all privileges away from ${user}`];
    // The server leaves out the others, too.
    const tables = all => counted(all.filter(record => record.boxes.length).length, "table");
    const differing = all => all.filter(record => record.held.includes(verb === "revoke"));
    const changing = differing(records).length.toLocaleString("en");
    const unsaved = asked_of(pending_changes(view)).length;
    return {
        fields: page_fields(page, "rights", user, [[button, ""]]),
        question: {
            title: `${name} for ${user}?`,
            text: `${name} ${deed} on every table of ${page.datasource}, whatever is ticked or filtered: ` +
                `${tables(records)}, of which ${changing} would change.` +
                (user === "public" ? " What public has, every user has." : "") +
                (unsaved ? ` ${counted(unsaved, "change")} not submitted will be lost.` : ""),
            go: name,
            danger: true,
        },
        check: next => {
            const left = differing(next.page?.user === user ? next.records : records);
            if (left.length)
                notice("info", `${name} ends at the first table where the database refuses.`);
            const held = verb === "grant" ? "all" : "none";
            return {
                done: left.length ? "" : `${user} now holds ${held} of the four privileges on ` +
                    `${tables(next.records)}.`,
                problems: left.map(record => statement(verb, "all", record.name, user)),
            };
        },
    };
}

function quoted_sql(name) {
    return `"${name.replaceAll('"', '""')}"`;
}

// Names that a table does not have are left out as the server does it: "C".""."T", but "T" alone.
function quoted_table({catalog, schema, table}) {
    const names = catalog ? [catalog, schema, table] : schema ? [schema, table] : [table];
    return names.map(quoted_sql).join(".");
}

function change_sql({record, p, verb}, user) {
    const grantee = user === "public" ? user : quoted_sql(user);
    return `${statement(verb, privileges[p], quoted_table(record), grantee)};\n`;
}

// The statements, and a button that copies them.
function sql_box(changes, user) {
    const area = element("textarea", {readonly: true, rows: "8", spellcheck: "false", "aria-label": "Changes as SQL"},
        changes.map(each => change_sql(each, user)).join(""));
    const result = element("span", {role: "status"});
    const copy = async () => {
        const copied = await copy_text(area.value);
        result.textContent = copied ? " Copied." : " Not copied: select the text and use the keyboard.";
    };
    return element("div", {class: "sql"}, area, element("button", {type: "button", onclick: copy}, "Copy"), result);
}

function show_sql(view) {
    const changes = asked_of(pending_changes(view));
    ask({
        title: "Changes as SQL",
        text: changes.length ? `${counted_changes(changes)}, not submitted:` : "Nothing has been changed.",
        extra: changes.length ? sql_box(changes, view.page.user) : null,
    });
}

// Gives a promise of {held}, from table_id to what the user holds, or of {problem}.
async function read_user(page, user) {
    const {text, problem} = await request_page(view_fields(page, "rights", user));
    return problem ? {problem: `The rights of ${user} could not be read. ${problem}`}
        : {held: new Map(read_rights(text).tables.map(table => [table_id(table), table.held]))};
}

// Sets the boxes of the tables that match the filter to what another user holds.
async function copy_rights(view) {
    const {page} = view;
    const others = new Set([...page.users, "public"].filter(user => user !== page.user && has_exact_name(user)));
    const choice = element("select", {autofocus: true},
        ...[...others].map(user => element("option", {value: user}, user)));
    const records = view.list.shown();
    const tables = counted(records.length, "table");
    const agreed = await ask({
        title: "Copy the rights of another user",
        text: `Sets the boxes of the ${tables} that match the filter to what the other user holds by name. Nothing ` +
            "is changed in the database before you press Submit Selection.",
        go: "Set the boxes",
        extra: element("label", {}, "Copy from ", choice),
    });
    if (!agreed)
        return;
    const {held, problem} = await while_busy(() => read_user(page, choice.value));
    if (problem)
        return notice("bad", problem);
    const pairs = records.flatMap(record => record.controls.map((box, p) => [box, held.get(table_id(record))?.[p]]))
        .filter(([box, ticked]) => ticked === !box.checked);
    change(pairs);
    notice("info", pairs.length ? `${counted(pairs.length, "change")} made to the boxes of ${tables} to match what ` +
        `${choice.value} holds. Look through them, then press Submit Selection.`
        : `The boxes of ${tables} are already as ${choice.value} holds them: none was changed.`);
}

function public_toggle(view) {
    const toggle = element("input", {type: "checkbox", onchange: () => {
        public_shown = toggle.checked;
        show_public(view, toggle);
    }});
    toggle.checked = public_shown;
    show_public(view, toggle);
    return element("label", {}, toggle, " Show what public has");
}

// Marks what everybody may do, or takes the marks away.
async function show_public(view, toggle) {
    const {held, problem} = toggle.checked ? await (view.public_rights ??= read_user(view.page, "public")) : {};
    if (problem) {
        view.public_rights = null;
        toggle.checked = false;
        if (shown.script === view)
            notice("info", problem);
    }
    for (const record of view.records)
        mark_public(record, toggle.checked && held?.get(table_id(record)));
}

function mark_public(record, held) {
    record.boxes.forEach((box, p) => {
        const mark = box.nextElementSibling;
        if (Boolean(held?.[p]) === Boolean(mark))
            return;
        if (mark)
            mark.remove();
        else
            box.after(element("small", {class: "public"}, "public"));
        label_box(record, p);
    });
}
