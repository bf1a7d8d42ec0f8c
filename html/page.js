// The page on the screen and the way to the next one.
//
// No form is submitted by the browser: the script writes it, posts it, looks at the whole answer and only then puts it in
// place of the page. So nothing typed is lost where no answer comes.

// The fields of the hidden kind that tell which page it is.
const page_names = ["users", "rights", "reports"];

let shown = null;
let busy = false;
const scripts_run = new Set();

function start() {
    window.tabwarden_ready = true;
    document.head.append(document.getElementById("script_style").content);
    document.addEventListener("submit", submitted);
    document.addEventListener("change", note_choice);
    document.addEventListener("focusin", note_value);
    document.addEventListener("beforeinput", note_value);
    document.addEventListener("input", note_input);
    addEventListener("beforeunload", event => changed_controls().length && event.preventDefault());
    addEventListener("popstate", went_back);
    addEventListener("beforeprint", draw_all);
    addEventListener("afterprint", draw_first);
    show(page_in(document));
    if (history.state?.fields)
        go(history.state.fields, {place: "same"});
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
    drawn_lists = [];
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
        main.prepend(element("div", {id: "notices"}));
    shown = page;
    document.title = title_of(page);
}

// Otherwise the browser would fetch its images anew.
function keep_menu(from, to) {
    const menu = from.querySelector(".menu");
    if (menu)
        to.querySelector(".menu")?.replaceWith(menu);
}

// The script of a page that came as an answer has to be run, once.
function run_scripts(main, has_run) {
    for (const script of main.querySelectorAll("script")) {
        if (!has_run && !scripts_run.has(script.textContent))
            document.head.append(element("script", {}, script.textContent));
        scripts_run.add(script.textContent);
        script.remove();
    }
}

// The reports page has no template of its own that could bring its script. A file comes with an error status, under which
// a browser runs no script by its address; it can be read nevertheless.
async function load_reports() {
    for (const file of window.reports_page ? [] : ["rights_text.js", "reports.js"]) {
        const response = await fetch(`${location.origin}/${file}`);
        document.head.append(element("script", {}, await response.text()));
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
    for (const list of drawn_lists)
        show_state(list);
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
    if (other_choice())
        return ask({title: "Press Refresh first", text: "Another data source or user has been chosen in the lists above than " +
            "this page shows."});
    const plan = shown.script.submission?.(button);
    if (!plan)
        return;
    if (plan.refusal)
        return ask(plan.refusal);
    if (await ask(plan.question))
        go(plan.fields, {plan, place: "same"});
}

// Posts the fields and shows the page that comes. `place` is "next" for a new entry in the browser's history.
async function go(fields, {plan, place}) {
    set_busy(true);
    clear_notices();
    const answer = await request_page(fields);
    if (answer.text)
        await show_answer(answer.text, {plan, place});
    else if (plan)
        await submission_failed(answer, plan);
    else
        view_failed(answer, fields);
    set_busy(false);
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
    if (page.name === "reports")
        await load_reports();
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
    if (busy || !await may_leave())
        return history.pushState({fields: view_fields(shown, shown.name, shown.user)}, "", "/");
    if (event.state?.fields)
        go(event.state.fields, {place: "same"});
    else
        location.reload();
}

const advice = {
    "refused": "Press the button again to log in as the administrator of the data source.",
    "unanswered": "Either the server is not running, or it could not open the data source: its database may be stopped or its " +
        "entry in odbc.ini wrong. Try again, or choose another data source.",
    "cut": "The connection broke. Try again.",
    "error": "",
    "too long": "Choose less at a time.",
};

// Nothing has been changed, neither on the page nor in the database.
function view_failed(answer, fields) {
    const datasource = fields.find(([name]) => name === "datasource")?.[1];
    const page = fields.map(([name]) => /^(users|rights|reports)_refresh$/.exec(name)?.[1]).find(Boolean);
    notice("bad", `${answer.problem} ${advice[answer.kind]}`, [`data source: ${datasource || "none"}`, `page: ${page}`]);
}

// It may have been carried out in part. So the list is read again, and what is not in it stays on the page as a change.
async function submission_failed(answer, plan) {
    const changes = unsaved_changes();
    const again = await request_page(view_fields(shown, shown.name, shown.user));
    if (again.text) {
        await show_text(again.text);
        put_back(changes);
        notice("bad", `${answer.problem} ${advice[answer.kind]}`, ["The list has been read again and shows what holds now. " +
            `${changed_controls().length ? "What is still marked as changed has not been carried out." : "Everything has been carried out."}`]);
    } else {
        notice("bad", `${answer.problem} ${advice[answer.kind]} Whether anything has been carried out is not known; nothing that you ` +
            "typed is lost. This was to be done:", plan.question.items);
    }
}
