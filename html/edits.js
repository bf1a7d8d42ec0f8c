// Changes that have not been submitted yet. What the database holds is a control's own default, with which the page came.
"use strict";

const steps = [];
let owners = new Map();
let after_edit = () => {};
let typing = null;

// Makes the controls of these records the ones that are watched. `redraw` is called after each change with the controls.
function watch_records(records, redraw) {
    steps.length = 0;
    typing = null;
    owners = new Map();
    for (const record of records)
        for (const control of record.controls ?? [])
            owners.set(control, record);
    after_edit = redraw;
}

function value_of(control) {
    return control.type === "checkbox" ? control.checked : control.value;
}

function set_value(control, value) {
    if (control.type === "checkbox")
        control.checked = value;
    else
        control.value = value;
}

// What the page came with.
function default_of(control) {
    return control.type === "checkbox" ? control.defaultChecked : control.defaultValue;
}

function changed(control) {
    return value_of(control) !== default_of(control);
}

function changed_controls() {
    return [...owners.keys()].filter(changed);
}

// Sets [control, value] pairs as one step that Undo takes back.
function change(pairs) {
    const step = pairs.filter(([control, value]) => value_of(control) !== value).map(([control]) => [control, value_of(control)]);
    for (const [control, value] of pairs)
        set_value(control, value);
    if (step.length)
        took_step(step);
}

function took_step(step) {
    steps.push(step);
    mark(step.map(([control]) => control));
}

// Takes back the last step.
function undo() {
    const step = steps.pop() ?? [];
    for (const [control, value] of step)
        set_value(control, value);
    typing = null;
    mark(step.map(([control]) => control));
}

// Takes back all that was changed, as one step.
function undo_all() {
    change(changed_controls().map(control => [control, default_of(control)]));
}

function mark(controls) {
    for (const control of controls) {
        control.closest("td")?.classList.toggle("changed", changed(control));
        const record = owners.get(control);
        record.row.classList.toggle("changed", record.controls.some(changed));
    }
    after_edit(controls);
}

// What is typed into a field at a stretch is one step: from the value that the field had before.
function note_value(event) {
    if (owners.has(event.target) && typing?.control !== event.target)
        typing = {control: event.target, from: value_of(event.target), noted: false};
}

function note_input(event) {
    const control = event.target;
    if (!owners.has(control))
        return;
    if (control.type === "checkbox") {
        took_step([[control, !control.checked]]);
    } else if (typing?.control === control && typing.noted) {
        mark([control]);
    } else {
        const from = typing?.control === control ? typing.from : control.defaultValue;
        typing = {control, from, noted: true};
        took_step([[control, from]]);
    }
}

// The changes by the names of their fields, to be made again in a page that came since; and what the reader calls them.
function unsaved_changes() {
    return changed_controls().map(control => [control.name, value_of(control), control.ariaLabel ?? control.name]);
}

// Those that the new page already holds are none any more. Gives what those are called that it has no fields for.
function put_back(changes) {
    const controls = new Map([...owners.keys()].filter(control => !control.disabled).map(control => [control.name, control]));
    change(changes.filter(([name]) => controls.has(name)).map(([name, value]) => [controls.get(name), value]));
    return changes.filter(([name]) => !controls.has(name)).map(([, , label]) => label);
}
