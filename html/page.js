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
    users: ["list.css", "list.js", "submit.js"],
    rights: ["list.css", "list.js", "rights_text.js", "submit.js"],
    reports: ["list.css", "reports.css", "rights_text.js", "reports.js"],
};

const files_run = new Set();

async function start() {
    document.head.append(document.getElementById("script_style").content);
    const page = page_in(document);
    try {
        await run_files(page);
    } catch {
        add_notices(page.main);
        return notice("bad", "A part of this page has not arrived. Load it again.");
    }
    add_listeners();
    show(page);
    window.tabwarden_ready = true;
    if (history.state?.fields && !is_new_visit())
        go(history.state.fields, {place: "same"});
}

// Browsers keep what the history remembers for an address when a link or the reader names that address once more.
function is_new_visit() {
    return performance.getEntriesByType("navigation")[0]?.type === "navigate";
}

function add_listeners() {
    for (const kind of ["click", "beforeinput"])
        document.addEventListener(kind, hold_back, true);
    document.addEventListener("submit", submitted);
    document.addEventListener("change", note_choice);
    document.addEventListener("focusin", note_value);
    document.addEventListener("beforeinput", note_value);
    document.addEventListener("input", note_input);
    addEventListener("beforeunload", event => changed_controls().length && event.preventDefault());
    addEventListener("popstate", went_back);
    addEventListener("unhandledrejection", () =>
        notice("bad", "The script of this page has failed. Load the page again to see what the database holds."));
    // Paper cannot be scrolled.
    addEventListener("beforeprint", () => page_lists.forEach(list => list.draw_all()));
    addEventListener("afterprint", () => page_lists.forEach(list => list.redraw()));
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
    page.user = form.querySelector(":scope > strong")?.textContent ?? "";
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
    if (page.main !== main) {
        keep_menu(main, page.main);
        main.replaceChildren(...page.main.childNodes);
    }
    page.main = main;
    describe(page);
    add_notices(main);
    shown = page;
    document.title = title_of(page);
}

function add_notices(main) {
    if (!document.getElementById("notices"))
        (main.querySelector(".menu") ?? main.firstChild).after(element("div", {id: "notices"}));
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
        const text = script.textContent;
        if (!have_run && !scripts_run.has(text))
            document.head.append(element("script", {}, text));
        scripts_run.add(text);
        script.remove();
    }
}

// A file comes with an error status, under which a browser runs no script by its address; it can be read nevertheless.
async function run_files(page) {
    for (const file of page_files[page.name] ?? []) {
        if (files_run.has(file))
            continue;
        const text = await (await fetch(`${location.origin}/${file}`)).text();
        document.head.append(element(file.endsWith(".css") ? "style" : "script", {}, text));
        files_run.add(file);
    }
}

function title_of(page) {
    const titles = {users: "Users", rights: `Rights of ${page.user}`, reports: "Reports"};
    return [titles[page.name], page.datasource && page.name !== "start" ? page.datasource : null, "tabwarden"].filter(Boolean).join(" – ");
}

// What the server's markup cannot tell to a screen reader, and what it says only by blanks.
function describe(page) {
    if (!page.form)
        return;
    for (const node of [...page.form.childNodes])
        if (node.nodeType === Node.TEXT_NODE && !node.data.trim())
            node.remove();
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
    if (!await may_leave())
        return;
    const fields = view_fields(shown, name, user_to_show(name), chosen_datasource(shown));
    go(fields, {place: name === shown.name ? "same" : "next"});
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

// Posts the fields and shows the page that comes. `place` is "next" for a new entry in the browser's history.
function go(fields, {plan, place}) {
    return while_busy(async () => {
        const answer = await prepared(await request_page(fields));
        if (answer.page)
            show_answer(answer.page, {plan, place});
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

// What is changed while an answer is awaited would be lost with the page that it takes the place of.
function hold_back(event) {
    if (busy && event.target.closest("main") && !event.target.closest("#notices")) {
        event.preventDefault();
        event.stopPropagation();
    }
}

// The answer with its text as a page that can be shown, and all files there that it needs.
async function prepared(answer) {
    if (!answer.text)
        return answer;
    const page = page_in(new DOMParser().parseFromString(answer.text, "text/html"));
    page.text = answer.text;
    try {
        await run_files(page);
        return {page};
    } catch {
        return {kind: "cut", problem: "A part of the page has not arrived."};
    }
}

function show_answer(page, {plan, place}) {
    const before = shown;
    const focused = document.activeElement?.name;
    show(page);
    shown.last_user = shown.user || (shown.datasource === before.datasource ? before.last_user : undefined);
    remember(place);
    if (place === "next")
        scrollTo(0, 0);
    focus_on(focused);
    if (plan)
        tell_outcome(plan.check(shown.script));
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

async function went_back(event) {
    if (location.hash)
        return;
    // What is asked is about the page that is shown.
    const question = document.querySelector("dialog");
    question?.close();
    if (busy || question || !await may_leave())
        return remember("next");
    if (event.state?.fields)
        go(event.state.fields, {place: "same"});
    else
        reload();
}

// The browser would ask once more about what has been agreed to.
function reload() {
    watch_records([], () => {});
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
    const page = page_names.find(name => fields.some(([field]) => field === `${name}_refresh`));
    notice("bad", explained(answer), [`Data source: ${datasource || "none"}`, `Page: ${page}`]);
}
