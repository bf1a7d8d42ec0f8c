// The way of a submission: the question before it, and what became of it.
"use strict";

// Others change the database too. So that the question tells what a submission really changes, the page is read once more
// first. Gives a promise of what prevented that, or undefined.
async function read_again() {
    const read = await request_page(view_fields(shown, shown.name, shown.user));
    if (read.text && read.text === shown.text)
        return undefined;
    const answer = await prepared(read);
    if (!answer.page)
        return answer;
    const known = shown.text;
    const changes = unsaved_changes();
    show(answer.page);
    const lost = put_back(changes);
    if (known)
        notice("info", "The database has changed since this page was read. The page shows what holds now, with your own changes " +
            `still to be submitted${lost.length ? ", except for those that cannot be made any more:" : "."}`, lost);
}

// Whether it was; otherwise the reader has been told why not.
async function is_read_again() {
    const problem = await while_busy(read_again);
    if (problem)
        notice("bad", `${explained(problem)} Nothing has been submitted.`);
    return !problem;
}

// Asks, submits what the page's own script says, and looks at what became of it. What others change while a question
// stands open makes it another question.
async function submit(button) {
    if (!shown.script.submission)
        return;
    if (other_choice())
        return ask({title: "Press Refresh first", text: "Another data source or user has been chosen in the lists above than " +
            "this page shows."});
    if (!await is_read_again())
        return;
    let page, plan;
    do {
        page = shown;
        plan = page.script.submission(button);
        if (plan.refusal)
            return ask(plan.refusal);
        if (!await ask(plan.question) || !await is_read_again())
            return;
    } while (shown !== page);
    go(plan.fields, {plan, place: "same"});
}

function tell_outcome({done, problems}) {
    if (problems.length)
        notice("bad", `${counted(problems.length, "change")} did not take effect:`, problems);
    if (done)
        notice("good", done);
}

// It may have been carried out in part. So the list is read again, and what it does not hold stays on the page as a change.
async function submission_failed(answer, plan) {
    if (answer.kind === "refused")
        return notice("bad", `${explained(answer)} Nothing has been submitted.`);
    if (await read_again())
        return notice("bad", `${explained(answer)} Whether anything has been carried out is not known. Nothing that you typed is ` +
            "lost. This was to be done:", plan.question.items);
    clear_notices();
    notice("bad", explained(answer), ["The list has been read again and shows what holds now. What is still marked as changed " +
        "can be submitted again."]);
}
