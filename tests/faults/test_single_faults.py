"""Every call of the program fails once, in every request that makes it, and nothing worse comes of it."""

import re
import subprocess

import pytest

from support import pages
from support.answers import classify
from support.fault_requests import FILES, REQUESTS, USERS, users_page
from support.server import PROGRAM, REPORTS
from support.source import ADMINISTRATOR
from support.statements import ADMINISTRATOR_NAME, LISTED_USERS, OFFERED_USERS, SORTED_USERS

# Functions, the kinds of fault that meet them, and what an answer may become then (support.answers), being whole apart.

CLOSED = {"nothing"}
LESS = {"hole", "less"}
REFUSED = {"refused"}
# By itself, behind the response header, or in place of another one.
ERROR_PAGE = {"error page + nothing", "error page + cut", "error page + whole"}
# The page goes on behind it where a failure ends only a part of it.
ERROR_PAGE_AND_REST = ERROR_PAGE | {"error page + hole"}
# One from the connection and one from the log-in.
ERROR_PAGES = ERROR_PAGE_AND_REST | {"error page + error page + nothing"}
WITHOUT_TEMPLATE = {
    "template page + nothing",
    "template page + cut",
    "template page + whole",
    "template page + error page + whole",
}
NO_TEMPLATE_OR_INCLUDE = WITHOUT_TEMPLATE | {
    "missing include + whole",
    "missing include + error page + whole",
}


def kinds_of(call):
    # An instrumented program takes ten times as long, and looks for memory: there one kind of fault is enough.
    return list(FAULTS[call])[: 1 if REPORTS else None]


def odbc(classes):
    return {"error": classes, "done": classes}


FAULTS = {
    "malloc": {"null": CLOSED},
    "calloc": {"null": set()},
    "realloc": {"null": CLOSED},
    # A header line that finds no memory is missing: that of the credentials, for one.
    "strdup": {"null": CLOSED | {"challenge", "cut"}},
    "fork": {"error": CLOSED},
    "accept": {"error": set(), "aborted": CLOSED},
    "select": {"error": CLOSED, "time-out": CLOSED, "exception": CLOSED, "not yet": set()},
    # Nothing received within the body ends the body.
    "recv": {"error": CLOSED, "short": set(), "zero": CLOSED},
    "send": {"error": CLOSED | {"cut", "hole"}, "short": {"cut", "hole"}},
    "open": {"error": CLOSED | NO_TEMPLATE_OR_INCLUDE},
    "read": {
        "short": set(),
        "nothing": {"cut", "hole"} | WITHOUT_TEMPLATE,
        "error": {"cut", "hole"} | WITHOUT_TEMPLATE,
    },
    # The file's length is missing in the header.
    "stat": {"error": {"hole"}},
    "gethostname": {"error": {"template page + whole"}},
    "SQLAllocHandle": odbc(ERROR_PAGES | LESS),
    "SQLCloseCursor": odbc(set()),
    "SQLDataSources": odbc(LESS),
    "SQLDisconnect": odbc(set()),
    "SQLDriverConnect": odbc(ERROR_PAGE),
    "SQLExecDirect": odbc(REFUSED | LESS | ERROR_PAGE_AND_REST),
    "SQLFetch": odbc(REFUSED | LESS | ERROR_PAGE),
    "SQLFreeHandle": odbc(set()),
    "SQLGetData": odbc(REFUSED | LESS | ERROR_PAGE),
    "SQLGetDiagRec": odbc(ERROR_PAGE),
    "SQLSetEnvAttr": odbc(ERROR_PAGE | LESS),
    "SQLTables": odbc(ERROR_PAGE_AND_REST),
}

# Where the body is read by itself; the other calls are those of the same page in one piece.
READING = ("select", "recv")

# Statements


def rights_query_of_nobody(query):
    return query.replace("'Abe'", "''")


def sent_after_failed_statement(statements, index, kind):
    failed, rest = statements[index], statements[index + 1 :]
    if kind == "done" and failed.startswith("select"):
        # Its rows are there, and nobody asks more of it.
        return rest
    if failed == ADMINISTRATOR_NAME and index == 1:
        return []
    if failed == SORTED_USERS:
        return [later for later in rest if later.startswith("insert")] + [LISTED_USERS]
    if failed == OFFERED_USERS and "'Abe'" in rest[-1]:
        # Without the names nobody is the first user.
        return [rights_query_of_nobody(rest[-1])]
    if failed.startswith(("grant all", "revoke all")):
        return [later for later in rest if not later.startswith(("grant", "revoke"))]
    return rest


def sent_after_failed_list(statements, index, kind):
    """A deletion goes on without the list of tables; a button of the rights page does not."""
    if not any(statement.startswith("delete") for statement in statements[:index]):
        return []
    return [later for later in statements[index + 1 :] if not later.startswith("revoke")]


def expected_statements(request, call, kind, number, statements):
    """The one right list of statements under the fault, None where there is more than one."""
    if request == "two data sources":
        return None
    if call == "SQLExecDirect":
        indexes = [index for index, statement in enumerate(statements) if not statement.startswith("{")]
        after = sent_after_failed_statement
    elif call == "SQLTables":
        indexes = [index for index, statement in enumerate(statements) if statement == "{SQLTables}"]
        after = sent_after_failed_list
    else:
        return None
    index = indexes[number - 1]
    return statements[: index + (kind == "done")] + after(statements, index, kind)


def is_subsequence(part, whole):
    rest = iter(whole)
    return all(statement in rest for statement in part)


def is_allowed(sent, statements):
    """Whether only what is sent without a fault is sent, in its order."""
    if SORTED_USERS in statements and LISTED_USERS not in statements:
        # The row at which the form stops may be the one that cannot be read.
        statements = [*statements, LISTED_USERS]
    of_nobody = [rights_query_of_nobody(statement) for statement in statements if statement.startswith(("{", "select"))]
    return is_subsequence(sent, statements) or is_subsequence(sent, of_nobody)


# The runs


def pages_now(laboratory, name, answer, sent):
    """The page that shows the data source as it has become."""
    header = answer.partition(b"\r\n\r\n")[0] + b"\r\n\r\n"
    user = re.search("b.grantee = '([^']*)'", sent[-1]) if sent else None
    if user:
        names = sorted([*(name for name, _, _ in laboratory.stored_users() if name != ADMINISTRATOR), "public"])
        page = pages.rights_page(user[1], laboratory.stored_rights(), users=names if user[1] else ())
        return [header + page.encode()]
    if sent[-1:] != [LISTED_USERS]:
        return []
    users = laboratory.stored_users()
    source = "branch" if name == "two data sources" else "accounts"
    # "public", which stands behind the administrator, is known by its name alone.
    with_nameless = users_page([users[0], ("", "", ""), *users[1:]], blank=1, source=source)
    return [header + page.encode() for page in (users_page(users, source=source), with_nameless)]


def complaints(laboratory, name, fault, answer, statements):
    call, kind, number = fault
    answered, sent = laboratory.send_with_fault(REQUESTS[name], *fault)
    yield from laboratory.harm()
    expected = expected_statements(name, call, kind, number, statements)
    if not is_allowed(sent, statements) or expected not in (None, sent):
        yield f"sent {sent} in place of {expected or statements}"
    allowed = [answer, *pages_now(laboratory, name, answer, sent)]
    what = classify(answered, allowed)
    if what not in FAULTS[call][kind] | {"whole"}:
        yield f"the answer is {what}: {answered}"
    for _, _, password in USERS:
        if password.encode() in answered and not any(password.encode() in page for page in allowed):
            yield f"{password} came out"


def tried(laboratory, name, fault, answer, statements, landing_page):
    """complaints(), and whether the next request is answered as ever."""
    yield from complaints(laboratory, name, fault, answer, statements)
    if laboratory.server.get("/") != landing_page:
        yield "the next request is not answered as before"


@pytest.mark.parametrize("name", REQUESTS)
def test_a_single_fault_harms_neither_server_nor_data_and_shows_nothing_else(laboratory, install, name):
    install(FILES.get(name, {}))
    landing_page = laboratory.server.get("/")
    answer, statements, reached = laboratory.count(REQUESTS[name])
    calls = READING if name == "body behind its header" else reached
    faults = [(call, kind, n + 1) for call in calls for kind in kinds_of(call) for n in range(reached[call])]
    found = [
        f"{fault}: {complaint}"
        for fault in faults
        for complaint in tried(laboratory, name, fault, answer, statements, landing_page)
    ]
    assert not found, "\n".join(found)


def test_every_odbc_call_of_the_program_can_fail():
    symbols = subprocess.run(["nm", "-D", "--undefined-only", PROGRAM], capture_output=True, text=True, check=True)
    calls = set(re.findall(r" U (SQL\w+)", symbols.stdout))
    # Reads the configuration, before there is a request.
    assert calls - set(FAULTS) == {"SQLGetPrivateProfileString"}
