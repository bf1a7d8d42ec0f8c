// The page on the screen and the way to the next one.
//
// No form is submitted by the browser: the script writes it, posts it, looks at the whole answer and only then puts it in
// place of the page. So nothing typed is lost where no answer comes.
"use strict";

// The fields of the hidden kind that tell which page it is.
const page_names = ["users", "rights", "reports"];

let shown = null;
let busy = false;

// The lists on the page, as make_list gives them.
let page_lists = [];

const scripts_run = new Set();

// What several pages need and their templates have no room for; the reports page has no template of its own.
const page_files = {
    users: ["list.js"],
    rights: ["list.js", "rights_text.js"],
    reports: ["list.js", "rights_text.js", "reports.js"],
};

const files_run = new Set();

async function start() {
    const page = page_in(document);
    await run_files(page);
    window.tabwarden_ready = true;
    document.head.append(document.getElementById("script_style").content);
    document.addEventListener("submit", submitted);
    document.addEventListener("change", note_choice);
    document.addEventListener("focusin", note_value);
    document.addEventListener("beforeinput", note_value);
    document.addEventListener("input", note_input);
    addEventListener("beforeunload", event => changed_controls().length && event.preventDefault());
    addEventListener("popstate", went_back);
    // Paper cannot be scrolled.
    addEventListener("beforeprint", () => page_lists.forEach(list => list.draw_all()));
    addEventListener("afterprint", () => page_lists.forEach(list => list.redraw()));
    show(page);
    if (history.state?.fields)
        go(history.state.fields, {place: "same"});
    else if (shown.name === "start" && !datasource_list(shown).length)
        notice("info", "There is no data source. Add one with the driver NORDVALE_ISAM or Tabrin to odbc.ini, then load this page again.");
}

// What stands in a document that the server sent: {name, main, form, datasource, user, users}. The name is "start" for the
// page before the log-in, "" for the one behind it that nothing has been chosen on yet.
function page_in(source) {
    const main = source.querySelector("main");
    const form = main.querySelector("form");
    const page = {main, form, name: "", datasource: "", user: "", users: []};
    if (!form)
        return page;
    page.name = form.querySelector("select[name=initial_datasource]") ? "start"
        : page_names.find(name => form.querySelector(`input[type=hidden][name=${name}_refresh]`)) ?? "";
    page.datasource = datasource_of(form);
    page.users = [...form.querySelectorAll("select[name=isamuser] option")].map(option => option.value);
    page.user = [...form.querySelectorAll(":scope > strong")].at(-1)?.textContent ?? "";
    return page;
}

// The server writes the value of last_datasource without quotes, so that it ends at the first blank.
function datasource_of(form) {
    const hidden = form.querySelector("input[name=last_datasource]");
    const listed = form.querySelector("option[selected]:not([name=isamuser] *)")?.value;
    hidden.value = listed ?? hidden.value;
    return hidden.value;
}

// Puts the page on the screen in place of the one before.
function show(page) {
    const main = document.querySelector("main");
    run_scripts(page.main, page.main === main);
    page_lists = [];
    watch_records([], () => {});
    page.script = window[`${page.name}_page`]?.(page) ?? {};
    watch_records(page.script.records ?? [], edited);
    if (page.main !== main)
        keep_menu(main, page.main);
    describe(page);
    if (page.main !== main)
        main.replaceChildren(...page.main.childNodes);
    page.main = main;
    if (!document.getElementById("notices"))
        (main.querySelector(".menu") ?? main.firstChild).after(element("div", {id: "notices"}));
    shown = page;
    document.title = title_of(page);
}

// Otherwise the browser would fetch its images anew.
function keep_menu(from, to) {
    const menu = from.querySelector(".menu");
    if (menu)
        to.querySelector(".menu")?.replaceWith(menu);
}

// The scripts of a page that came as an answer have to be run, each of them once.
function run_scripts(main, have_run) {
    for (const script of main.querySelectorAll("script")) {
        if (!have_run)
            run_script(script.textContent);
        scripts_run.add(script.textContent.trim());
        script.remove();
    }
}

function run_script(text) {
    if (!scripts_run.has(text.trim()))
        document.head.append(element("script", {}, text));
    scripts_run.add(text.trim());
}

// A file comes with an error status, under which a browser runs no script by its address; it can be read nevertheless.
async function run_files(page) {
    for (const file of page_files[page.name] ?? []) {
        if (files_run.has(file))
            continue;
        const response = await fetch(`${location.origin}/${file}`);
        run_script(await response.text());
        files_run.add(file);
    }
}

function title_of(page) {
    const titles = {users: "Users", rights: `Rights of ${page.user}`, reports: "Reports"};
    return [titles[page.name], page.datasource && page.name !== "start" ? page.datasource : null, "tabwarden"].filter(Boolean).join(" – ");
}

// What the server's markup cannot tell to a screen reader.
function describe(page) {
    if (!page.form)
        return;
    for (const [name, label] of [["datasource", "Datasource"], ["initial_datasource", "Datasource"], ["isamuser", "Isam User"]])
        page.form.elements.namedItem(name)?.setAttribute("aria-label", label);
    for (const table of page.form.querySelectorAll("table"))
        if (!table.tHead)
            table.setAttribute("role", "presentation");
    for (const button of page.form.querySelectorAll(".menu input"))
        button.setAttribute("aria-current", button.name === page.name ? "page" : "false");
}

function edited(controls) {
    shown.script.edited?.(controls);
    for (const list of page_lists)
        list.show_state();
}

// Another data source or user is chosen in the lists than the page shows: what is on the page is not theirs.
function other_choice() {
    const user = shown.form?.querySelector("select[name=isamuser]");
    return chosen_datasource(shown) !== shown.datasource || (user && user.value !== shown.user && user.selectedIndex >= 0);
}

function note_choice() {
    shown.form?.classList.toggle("other_choice", shown.name !== "start" && Boolean(other_choice()));
}

function submitted(event) {
    event.preventDefault();
    const button = event.submitter?.name;
    if (!button || busy)
        return;
    const view = page_names.includes(button) ? button
        : button.endsWith("_refresh") || button === "refresh_users" ? shown.name : null;
    if (view !== null)
        go_to_view(view);
    else
        submit(button);
}

async function go_to_view(name) {
    if (await may_leave())
        go(view_fields(shown, name, user_to_show(name)), {place: name === shown.name ? "same" : "next"});
}

function user_to_show(name) {
    const user = shown.form.querySelector("select[name=isamuser]")?.value;
    return name === "rights" && chosen_datasource(shown) === shown.datasource ? user ?? shown.last_user : undefined;
}

async function may_leave() {
    const edits = changed_controls().length;
    return !edits || ask({
        title: "Leave without submitting?", text: `${counted(edits, "change")} on this page would be lost.`,
        go: "Leave", cancel: "Stay", danger: true,
    });
}

// Asks, submits what the page's own script says, and looks at what became of it.
async function submit(button) {
    if (!shown.script.submission)
        return;
    if (other_choice())
        return ask({title: "Press Refresh first", text: "Another data source or user has been chosen in the lists above than " +
            "this page shows."});
    const problem = await while_busy(read_again);
    if (problem)
        return notice("bad", `${explained(problem)} Nothing has been submitted.`);
    const plan = shown.script.submission(button);
    if (plan.refusal)
        return ask(plan.refusal);
    if (await ask(plan.question))
        go(plan.fields, {plan, place: "same"});
}

// Others change the database too. So that the question tells what a submission really changes, the page is read once more
// first. Gives a promise of what prevented that, or undefined.
async function read_again() {
    const answer = await request_page(view_fields(shown, shown.name, shown.user));
    if (!answer.text)
        return answer;
    if (answer.text === shown.text)
        return undefined;
    const known = shown.text;
    const changes = unsaved_changes();
    await show_text(answer.text);
    put_back(changes);
    if (known)
        notice("info", "The database has changed since this page was read. The page shows what holds now, with your own changes " +
            "still to be submitted.");
}

// Posts the fields and shows the page that comes. `place` is "next" for a new entry in the browser's history.
function go(fields, {plan, place}) {
    return while_busy(async () => {
        const answer = await request_page(fields);
        if (answer.text)
            await show_answer(answer.text, {plan, place});
        else if (plan)
            await submission_failed(answer, plan);
        else
            view_failed(answer, fields);
    });
}

// One request at a time, and a word to the reader when it takes long.
async function while_busy(work) {
    clear_notices();
    set_busy(true);
    let waiting = null;
    const timer = setTimeout(() => waiting = notice("info", "Waiting for the data source …"), 1000);
    try {
        return await work();
    } finally {
        clearTimeout(timer);
        waiting?.remove();
        set_busy(false);
    }
}

function set_busy(on) {
    busy = on;
    document.documentElement.classList.toggle("busy", on);
    document.querySelector("main").setAttribute("aria-busy", String(on));
}

async function show_answer(text, {plan, place}) {
    const before = shown;
    const focused = document.activeElement?.name;
    await show_text(text);
    shown.last_user = shown.user || before.last_user;
    remember(place);
    if (place === "next")
        scrollTo(0, 0);
    focus_on(focused);
    if (plan)
        tell_outcome(plan.check(shown.script));
}

async function show_text(text) {
    const page = page_in(new DOMParser().parseFromString(text, "text/html"));
    page.text = text;
    await run_files(page);
    show(page);
}

// Coming back to a page must not submit anything again: what is remembered is only how to see it.
function remember(place) {
    const state = {fields: view_fields(shown, shown.name || "users", shown.user)};
    history[place === "next" ? "pushState" : "replaceState"](state, "", "/");
}

function focus_on(name) {
    const control = name && shown.form?.querySelector(`[name="${CSS.escape(name)}"]:not([type=hidden])`);
    (control ?? shown.main).focus({preventScroll: true});
}

function tell_outcome({done, problems}) {
    if (problems.length)
        notice("bad", `${counted(problems.length, "change")} did not take effect:`, problems);
    if (done)
        notice("good", done);
}

async function went_back(event) {
    if (location.hash)
        return;
    if (busy || !await may_leave())
        return history.pushState({fields: view_fields(shown, shown.name, shown.user)}, "", "/");
    if (event.state?.fields)
        go(event.state.fields, {place: "same"});
    else
        location.reload();
}

const advice = {
    "refused": "Press the button again to log in as the administrator of the data source.",
    "unanswered": "Either the server is not running, or it could not open the data source: its database may be stopped, or its " +
        "entry in odbc.ini wrong. Try again, or choose another data source.",
    "cut": "Try again.",
    "too long": "Change less at a time.",
};

function explained(answer) {
    return [answer.problem, advice[answer.kind]].filter(Boolean).join(" ");
}

// Nothing has been changed, neither on the page nor in the database.
function view_failed(answer, fields) {
    const datasource = fields.find(([name]) => name === "datasource")?.[1];
    const page = fields.map(([name]) => /^(users|rights|reports)_refresh$/.exec(name)?.[1]).find(Boolean);
    notice("bad", explained(answer), [`Data source: ${datasource || "none"}`, `Page: ${page}`]);
}

// It may have been carried out in part. So the list is read again, and what it does not hold stays on the page as a change.
async function submission_failed(answer, plan) {
    if (await read_again())
        return notice("bad", `${explained(answer)} Whether anything has been carried out is not known. Nothing that you typed is ` +
            "lost. This was to be done:", plan.question.items);
    clear_notices();
    notice("bad", explained(answer), ["The list has been read again and shows what holds now. What is still marked as changed " +
        "can be submitted again."]);
}
