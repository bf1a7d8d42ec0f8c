"""What a question says is what then happens in the database, whatever the names; and nothing else happens."""

import random

import pytest

from support import browser as browsers
from support.browser import press, visit
from support.kinds import ON_EMBEDDED, TABLES, grant_statement, table_statement
from support.pages import PRIVILEGES
from support.sample import user_statement
from support.source import ADMINISTRATOR, PASSWORD, other_process, outcomes

pytestmark = ON_EMBEDDED

# Where names are cut apart, decoded, escaped or compared.
PIECES = (
    *"aAbBxyT.=: &+%;,<>\"`\\_-?ü\n\t\ufffd\ufeff",
    "%41", "&amp;", "x=1", "_select", "__new", "isamuser", "datasource", "form_end", "public", "  ", "Größe",
)  # fmt: skip

ROUNDS = 40


def some_name(chance, longest):
    return "".join(chance.choice(PIECES) for _ in range(chance.randint(1, longest)))


def some_table(chance):
    names = [some_name(chance, 3) for _ in range(chance.randint(1, 3))]
    return (*([""] * (3 - len(names))), *names) if chance.random() < 0.8 else (names[0], "", names[-1])


def some_twins(chance):
    """Two tables of whose boxes the server cannot tell which are whose."""
    parts = [some_name(chance, 1) for _ in range(4)]
    return ((parts[0], parts[1], ".".join(parts[2:])), (parts[0], ".".join(parts[1:3]), parts[3]))


def do_what_is_possible(source, statements):
    other_process.submit(outcomes, source.connection_string(ADMINISTRATOR, PASSWORD), statements).result()


def rights_in(source):
    """(grantee, catalog, schema, table, privilege), and the rest of the database."""
    contents = source.contents()
    rows = contents.pop("nordvale.system.tableprv")
    rights = {tuple(part.decode() for part in (row[4], *row[:3], row[5])) for row in rows}
    assert len(rights) == len(rows)
    return rights, contents


def statement_of(verb, right, tables):
    """As the question writes it: names that read the same as another's are quoted."""
    grantee, *table, privilege = right
    dotted = key_of(table)
    shared = sum(key_of(other) == dotted for other in tables) > 1
    quoted = browsers_quoted(table) if shared else dotted
    return f"{verb} {privilege.lower()} on {quoted} {'to' if verb == 'grant' else 'from'} {grantee}"


def key_of(table):
    catalog, schema, name = table
    return f"{catalog}.{schema}.{name}" if catalog else f"{schema}.{name}" if schema else name


def browsers_quoted(table):
    catalog, schema, name = (part.replace('"', '""') for part in table)
    return f'"{catalog}"."{schema}"."{name}"' if catalog else f'"{schema}"."{name}"' if schema else f'"{name}"'


# Ticks boxes of that user's by their numbers, submits, says yes; gives the lines of the question.
SUBMISSION = """
const [user, ticks, done] = arguments;
(async () => {
    await go(view_fields(shown, "rights", user), {place: "same"});
    const boxes = shown.script.records.flatMap(record => record.controls);
    for (const tick of ticks)
        if (boxes.length)
            change([[boxes[tick % boxes.length], !boxes[tick % boxes.length].checked]]);
    let asked = [];
    window.ask = question => {
        asked = question.items ?? [];
        return Promise.resolve(Boolean(question.go));
    };
    await submit("submit_selection");
    while (busy)
        await new Promise(resolve => setTimeout(resolve, 5));
    done([asked, [...document.querySelectorAll(".notice.bad")].map(notice => notice.textContent)]);
})().catch(error => done(String(error.stack)));
"""


def test_a_selection_does_what_its_question_says_and_nothing_else(browser, site, either):
    chance = random.Random(1)
    visit(browser, site, "rights")
    source = either.source
    submitted = 0
    for _ in range(ROUNDS):
        source.reset()
        tables = [*(some_table(chance) for _ in range(chance.randint(1, 5))), *some_twins(chance)]
        users = [some_name(chance, 3) for _ in range(2)] + ["mary", "public"]
        statements = [*map(table_statement, tables), *(user_statement(user, "", "x") for user in users)]
        statements += [
            grant_statement(chance.choice(PRIVILEGES), chance.choice(tables), chance.choice(users)) for _ in range(8)
        ]
        do_what_is_possible(source, statements)
        user = chance.choice(users)
        before, rest_before = rights_in(source)
        ticks = [chance.randrange(1000) for _ in range(chance.randint(0, 5))]
        asked, refused = browser.execute_async_script(SUBMISSION, user, ticks)
        after, rest = rights_in(source)
        listed = [tuple(part.decode() for part in row) for row in rest["nordvale.system.table"]]
        expected = [statement_of("grant", right, listed) for right in after - before]
        expected += [statement_of("revoke", right, listed) for right in before - after]
        assert sorted(line.partition(" (not asked for: ")[0] for line in asked) == sorted(expected), (user, tables)
        assert rest == rest_before and refused == []
        assert {right[0] for right in before ^ after} <= {user}
        submitted += bool(asked)
    assert submitted > ROUNDS / 2


# Puts values into the fields of some rows by the rows' numbers, the last of which is the new user's, submits, says yes.
# Gives the lines of the question, the messages, and what was put where.
EDITS = """
const [edits, done] = arguments;
(async () => {
    await go(view_fields(shown, "users"), {place: "same"});
    const records = shown.script.records;
    const made = [];
    for (const [row, field, value] of edits) {
        const record = records[row % records.length];
        const control = record.controls[field];
        if (!control || record.old && field)
            continue;
        change([[control, control.type === "checkbox" ? true : value]]);
        made.push([record.user ?? null, field, value]);
    }
    let asked = [], refused = [];
    window.ask = question => {
        (question.go ? asked = question.items : refused = question.items ?? [question.title]);
        return Promise.resolve(Boolean(question.go));
    };
    await submit("submit_users");
    while (busy)
        await new Promise(resolve => setTimeout(resolve, 5));
    done([asked, refused, [...document.querySelectorAll(".notice.bad")].map(notice => notice.textContent), made]);
})().catch(error => done(String(error.stack)));
"""


def applied(rows, made):
    """The users after these edits, and what a question says of them."""
    rows, lines = dict(rows), []
    for user in {user for user, _, _ in made if user is not None}:
        description, password = rows[user]
        values = {field: value for name, field, value in made if name == user}
        if 2 in values:
            del rows[user]
            lines.append(f"delete {user} and take away all of {user}'s privileges")
            continue
        rows[user] = (values.get(0, description), values.get(1, password))
        if rows[user][0] != description:
            lines.append(f"change the description of {user}")
        if rows[user][1] != password:
            lines.append(f"change the password of {user}" if rows[user][1] else f"set an EMPTY password for {user}")
    added = {field: value for name, field, value in made if name is None}
    if any(added.values()):
        rows[added[0]] = (added.get(1, ""), added.get(2, ""))
        lines.append(f"add {added[0]}")
    return rows, lines


def users_in(source):
    """{name: (description, password)}, the rights, and the rest of the database."""
    rights, rest = rights_in(source)
    rows = rest.pop("nordvale.system.user")
    users = {name.decode(): ((text or b"").decode(), (word or b"").decode()) for name, text, word in rows}
    return users, rights, rest


REMARKS = (" (weak: ", " (empty password)", " (could not be changed here later: ", " (“")


def without_remarks(line):
    return line[: min((line.index(mark) for mark in REMARKS if mark in line), default=len(line))]


def test_edited_users_become_what_the_question_says_and_nothing_else(browser, site, either):
    chance = random.Random(2)
    visit(browser, site, "users")
    source = either.source
    submitted = 0
    for _ in range(ROUNDS):
        source.reset()
        names = [some_name(chance, 3) for _ in range(4)] + ["it's", "it''s"]
        statements = [user_statement(name, some_name(chance, 2), some_name(chance, 2)) for name in names]
        statements += [grant_statement("select", chance.choice(TABLES), name) for name in names]
        do_what_is_possible(source, statements)
        before, rights_before, rest_before = users_in(source)
        edits = [(chance.randrange(20), chance.randrange(3), some_text(chance)) for _ in range(chance.randint(0, 5))]
        asked, refused, problems, made = browser.execute_async_script(EDITS, edits)
        after, rights, rest = users_in(source)
        expected, lines = applied(before, made) if asked else (before, [])
        assert after == expected and sorted(map(without_remarks, asked)) == sorted(lines)
        gone = before.keys() - after.keys()
        assert rights == {right for right in rights_before if right[0] not in gone}
        assert rest == rest_before and problems == []
        submitted += bool(asked)
    assert submitted > ROUNDS / 2


def some_text(chance):
    return "".join(chance.choice((*PIECES, "'", "''", "😀")) for _ in range(chance.randint(0, 4))).replace("\n", "")
