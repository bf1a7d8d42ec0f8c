// The rights page: what its buttons would really do, asked before and looked at afterwards; columns and rows ticked at
// once; the rights of another user and of public beside those of the one shown.

// Whether the marks of public were asked for, undefined until somebody has chosen.
var public_shown;

// Takes an answer of the server before it is shown, makes its list, and gives what is needed to submit it.
function rights_page(page) {
    const view = {page, records: [], submission: button =>
        button === "submit_selection" ? selection_submission(view) : all_submission(view, button === "rights_grant")};
    watch_choosers(page);
    const table = page.form.querySelector(":scope > table[bgcolor='#0A1965']:not([align]) table");
    if (table)
        make_rights_list(view, table);
    return view;
}

function make_rights_list(view, table) {
    view.records = rights_records(table);
    table.rows[0].append(element("td", {}, "Row"));
    const list = view.list = make_list({
        table, records: view.records, columns: rights_columns(), noun: "table", place: table.closest("form > table"),
        filters: [{label: "Only held", test: record => record.held.includes(true)}],
    });
    const by_row = new Map(view.records.map(record => [record.row, record]));
    const dress = rows => rows.forEach(row => by_row.has(row) && dress_row(by_row.get(row)));
    dress([...list.body.rows]);
    new MutationObserver(drawn => drawn.forEach(({addedNodes}) => dress(addedNodes))).observe(list.body, {childList: true});
    add_head_buttons(table);
    table.addEventListener("click", ({target}) => {
        const button = target.closest("button.fill");
        if (button)
            fill_boxes(view, button, by_row.get(button.closest("tr")));
    });
    list.tools.append(
        ...(view.page.user === "public" ? [] : [public_toggle(view)]),
        element("button", {type: "button", onclick: () => copy_rights(view)}, "Copy rights from…"),
        element("button", {type: "button", onclick: () => show_sql(view)}, "Changes as SQL"),
    );
}

// What a cell shows, behind the line feed of its begin. A blank of its own kind stands for an empty name.
function cell_value(cell) {
    const text = cell.textContent.slice(1);
    return text === "\u00a0" ? "" : text;
}

// Tells tables apart, which their dotted names do not: there is a."b.c" and "a.b".c.
function table_id(table) {
    return [table.catalog, table.schema, table.table].join("\0");
}

// One record for each table. Where several have granted on it, it comes in as many rows, whose boxes are one to the server.
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
    for (const record of all)
        record.held = record.boxes.map(box => box.defaultChecked);
    find_problems(all);
    return all;
}

function rights_record(row) {
    const [catalog, schema, table, grantor, grantee] = [...row.cells].slice(0, 5).map(cell_value);
    const boxes = [...row.getElementsByTagName("input")];
    const key = boxes.length ? boxes[0].name.slice(0, -"_select".length) : [catalog, schema, table].join(".");
    return {row, text: key.toLowerCase(), catalog, schema, table, key, grantor, grantee, boxes};
}

function merge_record(record, other) {
    if (!record.grantor.split(", ").includes(other.grantor)) {
        record.grantor += `, ${other.grantor}`;
        record.row.cells[3].firstChild.textContent = record.grantor;
    }
    record.boxes.forEach((box, p) => {
        box.defaultChecked = box.checked = box.checked || other.boxes[p].checked;
    });
}

// Gives each record `twins`, the tables that share its boxes to the server; `sendable`, whether the boxes can be sent; and
// `problem`, why the row cannot be edited.
function find_problems(records) {
    const twins = new Map();
    for (const record of records)
        twins.set(record.key, [...twins.get(record.key) ?? [], ...record.boxes.length ? [record] : []]);
    for (const record of records) {
        record.twins = twins.get(record.key);
        record.problem = name_problem(record.key);
        record.sendable = record.boxes.length > 0 && !record.problem;
        if (!record.boxes.length)
            record.problem = "its name is too long";
        else if (record.twins.length > 1)
            record.problem ||= "the server takes it and another table of the list for one";
        record.controls = record.problem ? [] : record.boxes;
    }
}

// What a row gets when it is drawn: thousands of them never are.
function dress_row(record) {
    if (record.row.cells.length > 9)
        return;
    record.boxes.forEach((box, p) => {
        box.disabled = record.problem !== "";
        label_box(record, p);
    });
    if (record.problem)
        record.row.cells[2].append(element("div", {class: "reason"}, `Cannot be changed here: ${record.problem}.`));
    record.row.append(element("td", {},
        ...(record.problem ? [] : fill_buttons(`the four boxes of ${record.key}`, ""))));
}

function label_box(record, p) {
    const box = record.boxes[p];
    box.setAttribute("aria-label", `${privileges[p]} on ${record.key}` +
        (record.problem && `, cannot be changed here: ${record.problem}`) +
        (box.nextElementSibling ? ", granted to public" : ""));
}

// The two buttons that tick and clear several boxes: `what` names them.
function fill_buttons(what, p) {
    return [["All", "tick"], ["None", "clear"]].map(([text, verb]) => element("button", {type: "button", class: "fill",
        value: verb, "data-privilege": p, title: `${verb} ${what}`, "aria-label": `${text}: ${verb} ${what}`}, text));
}

function add_head_buttons(table) {
    privileges.forEach((privilege, p) => {
        const head = table.tHead.rows[0].cells[5 + p];
        // Otherwise each cell of the column is read out with what the buttons do.
        head.setAttribute("aria-label", privilege);
        head.append(element("div", {}, ...fill_buttons(`${privilege} on all tables that match the filter`, String(p))));
    });
}

// `record`: that of the button's row, none in the head.
function fill_boxes(view, button, record) {
    const p = Number(button.dataset.privilege);
    const boxes = record ? record.controls : view.list.shown().flatMap(each => each.controls.slice(p, p + 1));
    set_boxes(boxes.map(box => [box, button.value === "tick"]));
}

// Takes [box, whether it is to be ticked] pairs. Gives how many boxes that changes.
function set_boxes(pairs) {
    const changes = pairs.filter(([box, ticked]) => box.checked !== ticked);
    change(changes);
    return changes.length;
}

function rights_columns() {
    const names = ["catalog", "schema", "table", "grantor", "grantee"].map(name => record => record[name]);
    const ticked = privileges.map((_, p) => record => (record.boxes[p]?.checked ? 0 : 1));
    return [...[...names, ...ticked].map(key => ({key})), null];
}

// The buttons stay off until Refresh has shown what was chosen: until then the boxes are somebody else's.
function watch_choosers(page) {
    const note = element("p", {class: "hint", role: "status"});
    const buttons = page.form.querySelectorAll("[name=rights_grant], [name=rights_revoke], [name=submit_selection]");
    const look = () => {
        note.textContent = choice_problem(page);
        for (const button of buttons)
            button.disabled = note.textContent !== "";
    };
    buttons[0]?.closest("form > table").after(note);
    for (const chooser of page.form.querySelectorAll("select"))
        chooser.addEventListener("change", look);
    look();
}

function choice_problem(page) {
    const [source, user] = ["datasource", "isamuser"].map(name => page.form.querySelector(`select[name=${name}]`)?.value);
    if (!page.user)
        return "There is no user whose privileges could be changed.";
    if (page.user.includes("\uFFFD"))
        return "This user's name cannot be read. Nothing can be changed here; use SQL.";
    const other = source !== page.datasource ? `the data source ${source}` : user !== page.user ? user || "nobody" : "";
    return other && `You have chosen ${other}, but the list still shows ${page.user} in ${page.datasource}. ` +
        "Press Refresh to go on.";
}

function rights_fields(page, user, names) {
    return [["datasource", page.datasource], ["last_datasource", page.datasource], ["isamuser", user],
        ...["rights_refresh", ...names].map(name => [name, ""]), ["form_end", "1"]];
}

// "grant update on sales.public.orders to anna"
function change_text({record, p, verb}, user) {
    return `${verb} ${privileges[p]} on ${record.key} ${verb === "grant" ? "to" : "from"} ${user}`;
}

// What was ticked and cleared: {record, p, verb} each, p being the privilege's place.
function asked_changes(view) {
    return view.records.flatMap(record => record.controls.flatMap((box, p) =>
        box.checked === record.held[p] ? [] : [{record, p, verb: box.checked ? "grant" : "revoke"}]));
}

// The server grants what has its box in the form and revokes the rest. Tables that share boxes get one if all of them hold
// the privilege, so that nothing is granted that nobody asked for.
function is_posted(record, p) {
    return record.sendable && record.twins.every(twin => twin.boxes[p].checked);
}

// What every submission revokes besides, as the boxes cannot be sent.
function forced_changes(view) {
    return view.records.filter(record => record.problem).flatMap(record => record.boxes.flatMap((box, p) =>
        box.checked && !is_posted(record, p) ? [{record, p, verb: "revoke"}] : []));
}

function posted_boxes(view) {
    return new Set(view.records.flatMap(record =>
        record.boxes.filter((_, p) => is_posted(record, p)).map(box => box.name)));
}

function counted_changes(changes) {
    return ["grant", "revoke"].map(verb => [changes.filter(each => each.verb === verb).length, verb])
        .filter(([count]) => count).map(([count, verb]) => counted(count, verb)).join(" and ");
}

function selection_submission(view) {
    const {user} = view.page;
    const asked = asked_changes(view), forced = forced_changes(view);
    if (!asked.length)
        return {refusal: {title: "Nothing has been changed", text: "All boxes are as they were, so nothing was sent."}};
    const fields = rights_fields(view.page, user, [...posted_boxes(view), "submit_selection"]);
    const length = encoded_length(encoded_form(fields));
    if (length > form_limit)
        return {refusal: too_long(view, length)};
    const changes = [...forced, ...asked];
    return {
        fields,
        question: {
            title: `Change the privileges of ${user}?`,
            text: `${counted_changes(changes)} in the database:` + (forced.length ? forced_text(forced) : ""),
            items: changes.map((each, at) =>
                change_text(each, user) + (at < forced.length ? ` (not asked for: ${each.record.problem})` : "")),
            go: "Submit",
            danger: forced.length > 0,
            extra: forced.length ? sql_box(asked, user) : null,
        },
        check: next => check_changes(next, changes, user),
    };
}

function forced_text({length}) {
    return ` The first ${length === 1 ? "was" : `${length} were`} not asked for but cannot be avoided: these boxes cannot ` +
        "be sent, and the server revokes what is not sent. To keep the privileges, cancel and run the rest as SQL (below).";
}

function too_long(view, length) {
    const {user} = view.page;
    return {
        title: "Too many ticked boxes",
        text: `The form would have ${counted(length, "byte")}; ${counted(form_limit, "byte")} can be sent safely. The server ` +
            "cuts a longer one and revokes the privileges whose boxes are lost. So nothing was sent, and nothing has " +
            `changed. If ${user} is to hold everything or nothing, use Grant All or Revoke All. If not, run the changes as SQL:`,
        extra: sql_box(asked_changes(view), user),
    };
}

// Whether the changes are in the list that came back.
function check_changes(next, changes, user) {
    const after = new Map(next.page?.user === user ? next.records.map(record => [table_id(record), record]) : []);
    const state = ({record, p, verb}) => {
        const found = after.get(table_id(record));
        return !found ? " cannot be seen in the list that came back"
            : found.held[p] === (verb === "grant") ? "" : " was refused by the database";
    };
    const done = changes.filter(each => !state(each));
    return {
        done: done.length ? `${counted_changes(done)} ${done.length === 1 ? "was" : "were"} carried out for ${user}.` : "",
        problems: changes.filter(state).map(each => change_text(each, user) + state(each)),
    };
}

function all_submission(view, grants) {
    const {user, datasource} = view.page;
    const name = grants ? "Grant All" : "Revoke All";
    const unsaved = asked_changes(view).length;
    const changing = view.records.filter(record => !has_all(record, grants)).length;
    return {
        fields: rights_fields(view.page, user, [grants ? "rights_grant" : "rights_revoke"]),
        question: {
            title: grants ? `Grant everything to ${user}?` : `Revoke everything from ${user}?`,
            text: `${name} ${grants ? `grants select, insert, update and delete to ${user}`
                : `takes all privileges away from ${user}`} on every table of ${datasource}, whatever is ticked or ` +
                `filtered: ${counted(view.records.length, "table")}, of which ${changing.toLocaleString("en")} would change.` +
                (user === "public" ? " What public holds, every user has." : "") +
                (unsaved ? ` ${counted(unsaved, "change")} not submitted will be lost.` : ""),
            go: name,
            danger: true,
        },
        check: next => check_all(view, next, grants),
    };
}

// Whether the table has nothing left to be granted or revoked.
function has_all(record, grants) {
    return !record.held.includes(!grants);
}

function check_all({page: {user}, records}, next, grants) {
    const after = next.page?.user === user ? next.records : records;
    const left = after.filter(record => !has_all(record, grants));
    if (left.length)
        notice("info", `${grants ? "Grant All" : "Revoke All"} ends at the first table where the database refuses.`);
    return {
        done: left.length ? "" : `${user} now holds ${grants ? "all" : "none"} of the four privileges on ` +
            `${counted(after.length, "table")}.`,
        problems: left.map(({key}) => `${grants ? "grant" : "revoke"} all on ${key} ${grants ? "to" : "from"} ${user}`),
    };
}

function quoted_sql(name) {
    return `"${name.replaceAll('"', '""')}"`;
}

function change_sql({record: {catalog, schema, table}, p, verb}, user) {
    const name = [...catalog ? [catalog] : [], ...catalog || schema ? [schema] : [], table].map(quoted_sql).join(".");
    const grantee = user === "public" ? user : quoted_sql(user);
    return `${verb} ${privileges[p]} on ${name} ${verb === "grant" ? "to" : "from"} ${grantee};\n`;
}

// The statements, and a button that copies them.
function sql_box(changes, user) {
    const area = element("textarea", {readonly: true, rows: "8", spellcheck: "false", "aria-label": "Changes as SQL"},
        changes.map(each => change_sql(each, user)).join(""));
    const result = element("span", {role: "status"});
    const copy = async () => {
        result.textContent = await copy_text(area.value) ? " Copied." : " Not copied: select the text and use the keyboard.";
    };
    return element("div", {class: "sql"}, area,
        element("p", {}, element("button", {type: "button", onclick: copy}, "Copy"), result));
}

function show_sql(view) {
    const changes = asked_changes(view);
    ask({
        title: "Changes as SQL",
        text: changes.length ? `${counted_changes(changes)}, not submitted:` : "Nothing has been changed.",
        extra: changes.length ? sql_box(changes, view.page.user) : null,
    });
}

// Gives a promise of {held}, from table_id to what the user holds, or {problem}.
async function read_user(page, user) {
    const answer = await request_page(rights_fields(page, user, []));
    if (answer.problem)
        return answer;
    return {held: new Map(read_rights(answer.text).tables.map(table => [table_id(table), table.held]))};
}

// Sets the boxes of the tables that match the filter to what another user holds.
async function copy_rights(view) {
    const {page} = view;
    const others = new Set([...page.users, "public"].filter(user => user !== page.user && !user.includes("\uFFFD")));
    const choice = element("select", {}, ...[...others].map(user => element("option", {value: user}, user)));
    const records = view.list.shown();
    const tables = counted(records.length, "table");
    const agreed = await ask({
        title: "Copy the rights of another user",
        text: `Sets the boxes of the ${tables} that match the filter to what the other user holds by name. Nothing is ` +
            "changed in the database before you press Submit Selection.",
        go: "Set the boxes",
        extra: element("label", {}, "Copy from ", choice),
    });
    if (!agreed)
        return;
    const {held, problem} = await read_user(page, choice.value);
    if (problem)
        return notice("bad", `The rights of ${choice.value} could not be read. ${problem}`);
    const count = set_boxes(records.filter(record => held.has(table_id(record))).flatMap(record =>
        record.controls.map((box, p) => [box, held.get(table_id(record))[p]])));
    notice("info", `${counted(count, "change")} made to the boxes of ${tables}, as ${choice.value} holds them. ` +
        "Look through them, then press Submit Selection.");
}

function public_toggle(view) {
    const toggle = element("input", {type: "checkbox", onchange: () => {
        public_shown = toggle.checked;
        show_public(view, toggle, true);
    }});
    // Of more tables the rights take a while, for which only those should wait who want to see them.
    toggle.checked = public_shown ?? view.records.length < 1000;
    show_public(view, toggle);
    return element("label", {}, toggle, " Show what public has");
}

// Marks what everybody may do, or takes the marks away.
async function show_public(view, toggle, tell) {
    let held;
    if (toggle.checked) {
        const rights = await (view.public_rights ??= read_user(view.page, "public"));
        if (rights.problem) {
            view.public_rights = null;
            toggle.checked = false;
            if (tell)
                notice("bad", `What public has could not be read. ${rights.problem}`);
        } else if (toggle.checked) {
            held = rights.held;
        }
    }
    for (const record of view.records)
        mark_public(record, held?.get(table_id(record)));
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
