// The users page: what is marked and offered in its list, and what a submission sends.
//
// Only what was changed is sent, as the server takes a missing field for unchanged: any number of users can be listed.
"use strict";

// Bytes of a name, a description or a password.
const value_limit = 254;

const weak_length = 12;
const usual_words = ["admin", "administrator", "changeme", "iloveyou", "letmein", "manager", "password", "passwort",
    "qwerty", "qwertyuiop", "secret", "welcome"];
const usual_digits = "012345678901234567890 098765432109876543210";

// Without those that look alike: 0, O and o, 1, l and I.
const password_letters = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
const password_length = 20;

// Called for each users page before it is shown; gives what is done with it.
function users_page(page) {
    const name = page.form.elements.namedItem("__newuser");
    const table = name.closest("table");
    const newcomer = new_user(name);
    const records = [...table.rows].slice(1, -1).map(listed_user);
    const all = [...records, newcomer];
    const view = {
        page, newcomer, records, tells_passwords: records.some(({box, password}) => box && password.value),
        by_row: new Map(all.map(record => [record.row, record])),
        by_name: new Map(records.map(record => [record.user, record])),
    };
    for (const record of records.filter(({controls, password}) => controls.length && !password.value)) {
        mark_user(view, record);
        if (record.old || !view.tells_passwords)
            record.password.placeholder = "unchanged";
    }
    table.classList.add("users_list");
    table.addEventListener("click", event => password_button(view, event));
    const list = make_list({
        table, records, noun: "user", place: table.closest("form > table"), columns: [
            {title: "User", key: record => record.user},
            {title: "Description", key: record => record.description?.value ?? ""}, null, null, null],
    });
    // On top, as nobody finds the end of a list that grows as one scrolls.
    list.body.before(element("tbody", {}, newcomer.row));
    for (const row of [table.tHead.rows[0], ...all.map(record => record.row)])
        row.cells[3].hidden = true;
    add_user_tools(view, list.tools);
    return {
        records: all, view, submission: () => users_submission(view),
        edited: controls => controls.forEach(control => mark_user(view, view.by_row.get(control.closest("tr")))),
    };
}

// The record of a row as the server wrote it: {row, user, text, controls, description, password, old, box}. The
// administrator has `old`, others have `box`. Where nothing can be changed there are no `controls`, perhaps no fields.
function listed_user(row) {
    const [description, password, further] = row.querySelectorAll("input");
    // The cell's text begins with a line feed of the server's.
    const user = description ? description.name.slice(0, -"_file".length) : row.cells[0].textContent.slice(1);
    const text = `${user}\n${description?.value ?? ""}`.toLowerCase();
    const record = {row, user, text, description, password, controls: []};
    if (!description) {
        lock(record, "its name or its values are too long or cannot be read");
        return record;
    }
    prepare_fields(record, user);
    if (further.type === "checkbox")
        record.box = further;
    else
        place_old_password(record, further);
    further.setAttribute("aria-label", record.box ? `Delete ${user}` : `Old password of ${user}`);
    record.controls = [description, password, further];
    // Unescaped in the server's statements, which then fail or change somebody else: it''s is it's to them.
    const problem = user.includes("'") ? "its name holds a single quote" : name_problem(description.name);
    if (problem)
        lock(record, problem);
    return record;
}

// Beside the new one: a column for one field would only make the others narrow.
function place_old_password(record, field) {
    record.old = field;
    field.autocomplete = "off";
    record.password.parentNode.append(element("label", {class: "old"}, "Old password ", field));
}

// The record of the new user's row; it has the field `name` in place of `user`.
function new_user(name) {
    const row = name.closest("tr");
    const [, description, password] = row.querySelectorAll("input");
    prepare_fields({description, password}, "the new user");
    name.autocomplete = "off";
    name.setAttribute("aria-label", "New user: name");
    // For the eye; to others the fields themselves say what they are.
    for (const [control, text] of [[name, "New user"], [description, "Description"], [password, "Password"]])
        control.before(element("span", {class: "hint", "aria-hidden": "true"}, text));
    row.classList.add("new_user");
    return {row, name, description, password, controls: [name, description, password]};
}

function prepare_fields({description, password}, user) {
    // A field holds no ends of lines, whatever the database does; what it shows counts as unchanged.
    for (const control of [description, password])
        if (control.value !== control.defaultValue)
            control.defaultValue = control.value;
    description.autocomplete = "off";
    description.setAttribute("aria-label", `Description of ${user}`);
    password.type = "password";
    password.autocomplete = "new-password";
    password.setAttribute("aria-label", `Password of ${user}`);
    password.after(password_buttons(user));
}

// Copied for each row, which takes a fraction of the time.
let first_buttons = null;

function password_buttons(user) {
    first_buttons ??= element("span", {class: "row_tools"},
        ...["Show", "Copy", "Generate"].map(title => element("button", {type: "button"}, title)));
    const buttons = first_buttons.cloneNode(true);
    for (const button of buttons.children)
        button.setAttribute("aria-label", `${button.textContent} password of ${user}`);
    return buttons;
}

function buttons_of(record) {
    return [...record.password.nextSibling.children];
}

function lock(record, reason) {
    record.row.classList.add("locked");
    set_mark(record.row.cells[0], `Cannot be changed here: ${reason}. Use SQL.`);
    for (const control of record.controls)
        control.disabled = true;
    if (record.password)
        buttons_of(record)[2].disabled = true;
    record.controls = [];
}

function user_of(record) {
    return record.name ? record.name.value : record.user;
}

// Marks

let marks_made = 0;

// Shows the text in the cell of the control, or of that name; "" takes it away. `wrong` is what cannot be submitted.
function set_mark(place, text, wrong = false) {
    const cell = place.closest("td");
    cell.querySelector(".mark")?.remove();
    if (text) {
        const id = `mark_${++marks_made}`;
        cell.append(element("span", {class: wrong ? "mark wrong" : "mark", id}, text));
        place.setAttribute("aria-describedby", id);
    } else {
        place.removeAttribute("aria-describedby");
    }
    if (place !== cell)
        place.setAttribute("aria-invalid", String(wrong));
}

// Brings a row up to date with what is in its fields.
function mark_user(view, record) {
    const {name, description, password, box} = record;
    const deleted = Boolean(box?.checked);
    record.text = `${user_of(record)}\n${description.value}`.toLowerCase();
    record.row.classList.toggle("deleted", deleted);
    for (const control of [description, password, ...buttons_of(record)])
        control.disabled = deleted;
    if (box)
        set_mark(box, deleted ? "Will be deleted" : "");
    if (name)
        set_mark(name, name_error(view, name) || name_warning(view, name), Boolean(name_error(view, name)));
    set_mark(description, value_error(description), Boolean(value_error(description)));
    set_mark(password, value_error(password) || password_warning(view, record), Boolean(value_error(password)));
}

// Why the server would not take what was put into the field, or "". Of a row to be deleted it takes nothing.
function value_error(control) {
    if (!changed(control) || control.disabled)
        return "";
    const bytes = encoded_length(control.value);
    if (bytes > value_limit)
        return `Too long: ${bytes} bytes, and ${value_limit} is the most`;
    return /\p{Surrogate}|\0/u.test(control.value) ? "Has a character that cannot be sent" : "";
}

function name_error(view, name) {
    if (name.value.includes("'"))
        return "A single quote (') is not allowed";
    if (view.by_name.has(name.value))
        return "This user exists already";
    return name.value === "public" ? "“public” stands for everybody" : value_error(name);
}

function name_warning(view, name) {
    const other = view.records.find(({user}) => user.toLowerCase() === name.value.toLowerCase());
    if (other)
        return `“${other.user}” exists already`;
    const problem = name_problem(name.value);
    return problem ? `Could not be changed here later: ${problem}` : "";
}

function password_warning(view, record) {
    const {name, password, old, box} = record;
    if (password.disabled)
        return "";
    if (old?.value && !password.value)
        return "An EMPTY password would be set";
    if (!password.value)
        return changed(password) || name?.value || (box && view.tells_passwords) ? "Empty password" : "";
    const weakness = changed(password) ? password_weakness(password.value, user_of(record)) : "";
    return weakness && `Weak: ${weakness}`;
}

// Why the password can be guessed, or "".
function password_weakness(password, user) {
    const text = password.toLowerCase();
    if (text === user.toLowerCase() || (user.length > 2 && text.includes(user.toLowerCase())))
        return "the user name is in it";
    if (usual_digits.includes(text) || usual_words.includes(text.replace(/\P{Letter}/gu, "")))
        return "a usual password";
    return [...password].length < weak_length ? `shorter than ${weak_length} characters` : "";
}

// Passwords

function add_user_tools(view, tools) {
    const show_all = element("button", {type: "button", onclick: () => {
        const show = show_all.textContent.startsWith("Show");
        for (const record of [...view.records, view.newcomer])
            if (record.password)
                show_password(record, show);
        show_all.textContent = show ? "Hide all passwords" : "Show all passwords";
    }}, "Show all passwords");
    view.status = element("span", {class: "status", role: "status"});
    tools.append(show_all, view.status);
}

function password_button(view, event) {
    const button = event.target.closest(".row_tools button");
    if (!button)
        return;
    const record = view.by_row.get(button.closest("tr"));
    const act = [show_password, copy_password, generate_password][buttons_of(record).indexOf(button)];
    act(record, record.password.type === "password", view);
}

function show_password(record, show) {
    const [button] = buttons_of(record);
    record.password.type = show ? "text" : "password";
    button.textContent = show ? "Hide" : "Show";
    button.setAttribute("aria-label", button.getAttribute("aria-label").replace(/^\w+/, button.textContent));
}

async function copy_password(record, _, view) {
    const whose = user_of(record) || "the new user";
    if (!record.password.value)
        view.status.textContent = `There is no password of ${whose} to copy.`;
    else if (await copy_text(record.password.value))
        view.status.textContent = `The password of ${whose} has been copied.`;
    else
        view.status.textContent = "The browser does not allow copying.";
}

function generate_password(record, _, view) {
    change([[record.password, new_password()]]);
    show_password(record, true);
    view.status.textContent = `Submit will set the new password of ${user_of(record) || "the new user"}.`;
}

function new_password() {
    // With the last bytes, the first letters would come more often than the others.
    const end = 256 - 256 % password_letters.length;
    let password = "";
    while (password.length < password_length) {
        const [byte] = crypto.getRandomValues(new Uint8Array(1));
        if (byte < end)
            password += password_letters[byte % password_letters.length];
    }
    return password;
}

// Submission

function users_submission(view) {
    const edits = [...view.records, view.newcomer].filter(record => record.controls.some(changed))
        .map(record => record.name ? new_user_edit(view, record) : user_edit(view, record));
    const refusal = submission_refusal(view, edits);
    if (refusal)
        return {refusal};
    const fields = form_of(view, edits);
    if (encoded_length(encoded_form(fields)) > form_limit)
        return {refusal: too_long(view, edits)};
    return {fields, question: users_question(view, edits), check: next => users_outcome(view, edits, next.view)};
}

function form_of(view, edits) {
    return page_fields(view.page, "users", undefined, [...edits.flatMap(edit => edit.fields), ["submit_users", "Submit"]]);
}

// What is asked of one row: {record, user, fields, words, add, remove, description, password}. The words tell it to the
// reader; description and password are there if they are to be set.
function user_edit(view, record) {
    const {user, description, password, old, box} = record;
    const edit = {record, user, fields: [], words: []};
    if (box?.checked)
        return {...edit, remove: true, fields: [[box.name, box.value]],
            words: [`delete ${user} and take away all of ${user}'s privileges`]};
    if (changed(description)) {
        edit.description = description.value;
        edit.fields.push([description.name, description.value]);
        edit.words.push(`change the description of ${user}`);
    }
    if (changed(password) || old?.value) {
        edit.password = password.value;
        edit.fields.push([password.name, password.value]);
        edit.words.push(!password.value ? `set an EMPTY password for ${user}`
            : `change the password of ${user}${remark(password_warning(view, record))}`);
    }
    if (old?.value)
        edit.fields.push([old.name, old.value]);
    return edit;
}

function new_user_edit(view, record) {
    const [user, description, password] = record.controls.map(control => control.value);
    const remarks = remark(name_warning(view, record.name)) + remark(password_warning(view, record));
    return {record, user, description, password, add: true, words: [`add ${user}${remarks}`],
        fields: record.controls.map(control => [control.name, control.value])};
}

function remark(warning) {
    return warning && ` (${warning[0].toLowerCase()}${warning.slice(1)})`;
}

// Why nothing may be sent, for ask(), or null. What the server would refuse with an error page stops it half-way.
function submission_refusal(view, edits) {
    if (!edits.length)
        return {title: "Nothing has been changed", text: "There is nothing to submit."};
    const items = edits.flatMap(edit => edit_errors(view, edit, edits.length === 1));
    return items.length ? {title: "Please correct this first", text: "Nothing has been sent.", items} : null;
}

function edit_errors(view, {record, user, remove, add, password}, alone) {
    if (remove)
        return [];
    if (add && !user)
        return ["new user: there is a description or password, but no name"];
    const errors = {
        name: add ? name_error(view, record.name) : "", description: value_error(record.description),
        password: value_error(record.password),
    };
    // Alone it does no harm, and there is no other way where the old password is empty.
    if (!alone && record.old && password && !record.old.value && view.tells_passwords)
        errors.password = "The old one is missing. If that is empty, submit the new one alone";
    return Object.keys(errors).filter(field => errors[field]).map(field => `${field} of ${user}: ${errors[field]}`);
}

function too_long(view, edits) {
    const length_of = count => encoded_length(encoded_form(form_of(view, edits.slice(0, count))));
    const fitting = edits.findIndex((_, at) => length_of(at + 1) > form_limit);
    return {
        title: "Too many changes at once",
        text: `The server reads no more than ${counted(form_limit, "byte")} of a form, so nothing has been sent. ` +
            `Of ${counted(edits.length, "changed row")} the first ${fitting.toLocaleString("en")} fit: undo the last ` +
            "changes, submit, and make them again. “Only changed” shows the rows.",
    };
}

function users_question(view, edits) {
    const does_damage = edit => edit.remove || (edit.password === "" && !edit.add);
    const ordered = [...edits.filter(does_damage), ...edits.filter(edit => !does_damage(edit))];
    const items = ordered.flatMap(edit => edit.words);
    return {
        title: `Submit these changes to ${view.page.datasource}?`,
        text: `${edits.map(old_password_advice).join("")}This takes effect at once; there is no undo.`,
        items, go: "Submit", danger: edits.some(does_damage),
    };
}

function old_password_advice({record: {old}, user, password}) {
    if (!old || password === undefined)
        return "";
    if (!password)
        return `The old password of ${user} is filled in and the new one is empty: an EMPTY password would be set. ` +
            "If you did not mean that, cancel and empty the old one; the browser may have filled it in. ";
    return `The old password of ${user} is ${old.value ? "" : "not "}given. A data source that does not show ` +
        "passwords, such as PostgreSQL, wants none; others want it. ";
}

// What came of it, as the list that came back tells: {done, problems}.
function users_outcome(view, edits, next) {
    const tells = view.tells_passwords || next.tells_passwords;
    const problems = [], unseen = [], count = {added: 0, changed: 0, deleted: 0};
    for (const edit of edits) {
        const found = edit_problems(edit, next.by_name.get(edit.user), tells);
        const hidden = edit.password !== undefined && (edit.record.old || (edit.password && !tells));
        problems.push(...found);
        if (!found.length && hidden)
            unseen.push(edit);
        if (!found.length && !(hidden && !edit.add && edit.description === undefined))
            count[edit.add ? "added" : edit.remove ? "deleted" : "changed"]++;
    }
    return {problems, done: `${done_text(count)} ${unseen_text(unseen)}`.trim()};
}

function edit_problems({record, user, add, remove, description, password}, after, tells) {
    if (remove)
        return after ? [`${user} was not deleted: the database refused. The privileges may have been taken away`] : [];
    if (!after)
        return [add ? `${user} was not added: the database refused` : `${user} is not listed any more`];
    const not_done = field => `the ${field} of ${user} was not ${add ? "set" : "changed"}: the database refused`;
    const problems = [];
    if (after.description && description !== undefined && after.description.value !== description)
        problems.push(not_done("description"));
    if (after.password && password !== undefined && tells && !record.old && after.password.value !== password)
        problems.push(not_done("password"));
    return problems;
}

// "2 users were changed, 1 was added."
function done_text(count) {
    const parts = Object.entries(count).filter(([, users]) => users).map(([what, users], at) =>
        `${at ? users.toLocaleString("en") : counted(users, "user")} ${users === 1 ? "was" : "were"} ${what}`);
    return parts.length ? `${parts.join(", ")}.` : "";
}

function unseen_text(edits) {
    if (!edits.length)
        return "";
    const users = edits.length > 3 ? counted(edits.length, "user") : edits.map(edit => edit.user).join(", ");
    return `Whether the new password of ${users} is in force cannot be seen here.` +
        (edits.some(edit => edit.record.old) ? " Log in with your own new one when the browser asks." : "");
}
