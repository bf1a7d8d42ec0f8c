"""Values at, below and far above each limit: the right page or a clear error, never a shortened value."""

import base64

import pytest

from support import pages
from support.headers import header_block, refusal_block, undated
from support.pages import HELD, NOTES, TABLES, USERS, error_page, quoted_name
from support.source import ADMINISTRATOR, PASSWORD

# The longest value of a column or a name; one more does not fit.
LONGEST = 254

LENGTHS = [253, 254, 255, 256, 1023, 1024, 5000, 32000]

SOURCE_TOO_LONG = "User name, password or data source name is too long.\n"
USER_TOO_LONG = "User name is too long.\n"

LOG_IN = base64.b64encode(f"{ADMINISTRATOR}:{PASSWORD}".encode()).decode()


def landing_page():
    return header_block() + pages.page(pages.source_chooser(pages.SOURCES, "accounts", "initial_datasource")).encode()


def no_data_source():
    return error_page("No datasource specified, re-select<br>").encode()


def still_serves(server):
    return undated(server.get("/")) == landing_page()


# The parts of a request that nobody reads, or that are compared as a whole

HEADERS = [
    "Cache-Control",
    "Connection",
    "Content-Type",
    "Date",
    "Forwarded",
    "Keep-Alive",
    "MIME-Version",
    "Pragma",
    "Upgrade",
    "Accept",
    "Accept-Charset",
    "Accept-Encoding",
    "Accept-Language",
    "Authorization",
    "From",
    "Host",
    "If-Modified-Since",
    "Proxy-Authorization",
    "Range",
    "Referer",
    "Unless",
    "User-Agent",
    "Via",
    "X-Forwarded-For",
    "X-Unknown",
    "Content-Length",
]


@pytest.mark.parametrize("name", HEADERS)
def test_a_header_line_of_any_length_changes_nothing(visitor, name):
    server = visitor.server
    for length in LENGTHS:
        request = f"GET / HTTP/1.1\r\n{name}: {length * 'v'}\r\n\r\n"
        assert undated(server.request(request.encode())) == landing_page(), length


@pytest.mark.parametrize("length", LENGTHS)
def test_a_header_name_of_any_length_is_another_name(visitor, length):
    name = "Content-Length".ljust(length, "x")
    request = f"POST /isam.cgi HTTP/1.1\r\n{name}: 1\r\nContent-Length: 3\r\n\r\na=1"
    assert visitor.server.request(request.encode()) == no_data_source()


@pytest.mark.parametrize("length", LENGTHS)
def test_method_path_query_and_protocol_of_any_length(visitor, length):
    server = visitor.server
    assert server.request(f"{'GET'.ljust(length, 'x')} / HTTP/1.1\r\n\r\n".encode()) == b""
    assert server.get("/index.html".ljust(length, "x")) == b""
    assert server.get("/isam.cgi".ljust(length, "/")) == b""
    assert undated(server.get("/?" + length * "q")) == landing_page()
    assert undated(server.get("/", version=" " + "HTTP/1.1".ljust(length, "x"))) == landing_page()
    assert still_serves(server)


@pytest.mark.parametrize("length, answered", [(32767, True), (32768, False), (32769, False), (100000, False)])
def test_a_request_line_up_to_the_buffer_s_size(visitor, length, answered):
    request = b"GET /?" + (length - len("GET /? HTTP/1.1\r\n\r\n")) * b"q" + b" HTTP/1.1\r\n\r\n"
    assert len(request) == length
    assert undated(visitor.server.request(request)) == (landing_page() if answered else b"")
    assert still_serves(visitor.server)


@pytest.mark.parametrize("length", LENGTHS)
def test_a_form_field_s_name_of_any_length_is_another_name(visitor, accounts, length):
    before = accounts.contents()
    for name in ("isamuser", "mary_password", "mary_checkbox", "submit_users", "datasource", "users.x", "notes_select"):
        for other in (name.ljust(length, "x"), length * "x" + name):
            visitor.page([("users_refresh", ""), (other, "x")])
    assert accounts.contents() == before


@pytest.mark.parametrize("name", ["users.x", "rights.x", "reports.x", "users_refresh", "rights_refresh", "whatever"])
def test_the_value_of_a_button_may_have_any_length(visitor, name):
    pages_ = {visitor.page([(name, length * "v")]) for length in (0, *LENGTHS)}
    assert len(pages_) == 1


# Log-in and data source


@pytest.mark.parametrize("length", LENGTHS[:-1])
def test_credentials_that_do_not_fit_are_not_shortened(visitor, accounts, length):
    for log_in in ({"user": "admin".ljust(length)}, {"password": "manager".ljust(length)}):
        response = visitor.post(**log_in)
        if length <= LONGEST:
            assert pages.is_refused(response)
        else:
            assert response.decode() == error_page(SOURCE_TOO_LONG)


@pytest.mark.parametrize("length", [5000, 20000])
def test_an_authorization_of_any_length_that_holds_no_credentials_gets_no_answer(visitor, length):
    for value in (length * "A", length * " ", "Basic " + length * " ", length * "x" + " QQ=="):
        header = f"Authorization: {value}"
        assert visitor.server.post("/isam.cgi", [("datasource", "accounts")], [header]) == b""
    assert still_serves(visitor.server)


def test_a_scheme_word_of_any_length_is_skipped(visitor):
    for length in LENGTHS[:-1]:
        response = visitor.server.post(
            "/isam.cgi", [("datasource", "accounts")], [f"Authorization: {length * 'B'}{length * ' '}{LOG_IN}"]
        )
        assert pages.answered(response) == pages.page(pages.choosers())


@pytest.mark.parametrize("field", ["datasource", "initial_datasource"])
@pytest.mark.parametrize("length", LENGTHS)
def test_a_data_source_name_that_does_not_fit_is_not_shortened(visitor, accounts, field, length):
    response = visitor.send([(field, "accounts".ljust(length)), ("last_datasource", "accounts")]).decode()
    if length > LONGEST:
        assert response == error_page(SOURCE_TOO_LONG)
    else:
        assert pages.message_of(response).startswith("SQLDriverConnect failed with [unixODBC]")
    assert accounts.statements() == []


@pytest.mark.parametrize("length", LENGTHS)
def test_so_is_one_that_only_the_page_would_use(visitor, accounts, length):
    posted = [("initial_datasource", "accounts"), ("datasource", "accounts".ljust(length)), ("users.x", "1")]
    page = pages.answered(visitor.send(posted))
    if length > LONGEST:
        assert page == error_page("Data source name is too long.\n")
    else:
        assert pages.message_of(page).startswith("SQLDriverConnect failed with [unixODBC]")
    assert len(accounts.statements()) == 2


def test_a_log_in_that_does_not_fit_leaves_the_challenge_without_credentials_as_it_is(visitor):
    assert undated(visitor.server.post("/isam.cgi", [("datasource", 5000 * "x")])) == refusal_block()


# The user of the rights page


@pytest.mark.parametrize("length", LENGTHS)
@pytest.mark.parametrize("button", ["rights_refresh", "rights_grant", "rights_revoke", "submit_selection"])
def test_an_action_for_a_user_whose_name_does_not_fit_meets_nobody(visitor, accounts, button, length):
    accounts.execute('grant all on notes to "Abe"')
    before = accounts.contents()
    for user in ("Abe".ljust(length), length * "u"):
        page = visitor.page([("rights_refresh", ""), ("isamuser", user), (button, "")])
        if length > LONGEST:
            assert page == error_page(USER_TOO_LONG)
        else:
            held = {**HELD, ("Abe", NOTES): pages.PRIVILEGES}
            assert page == pages.rights_page(user, held)
    assert accounts.contents() == before


# Stored values


@pytest.mark.parametrize("length", [253, 254, 255, 256, 300, 1024, 5000])
def test_a_stored_user_whose_name_does_not_fit_has_no_fields(visitor, accounts, length):
    name, beginning = length * "u", LONGEST * "u"
    accounts.change(f"insert into \"nordvale.system.user\" values ('{name}', 'd', 'p')")
    page = visitor.page([("users.x", "1")])
    if length <= LONGEST:
        assert page == pages.users_page((*USERS, (name, "d", "p")))
    else:
        row = "<tr>\n" + pages.value_cell(beginning) + 4 * pages.cell("&nbsp;") + "</tr>\n"
        assert row in page
        assert page.replace(row, "") == pages.users_page()


@pytest.mark.parametrize("place", ["catalog", "schema", "table"])
@pytest.mark.parametrize("length", [254, 255, 256, 300, 1024, 5000])
def test_a_table_whose_name_does_not_fit_has_no_boxes(visitor, accounts, place, length):
    names = {"catalog": "c", "schema": "s", "table": "t"}
    table, beginning = (tuple({**names, place: size * "n"}.values()) for size in (length, LONGEST))
    accounts.execute(*(f"drop table {quoted_name(other)}" for other in TABLES))
    accounts.execute(
        f"create table {quoted_name(table)} (id integer)", f'grant select on {quoted_name(table)} to "Abe"'
    )
    row = pages.rights_row(beginning, ("select",), "admin", "Abe")
    if length > LONGEST:
        values = "".join(pages.value_cell(value) for value in (*beginning, "admin", "Abe"))
        row = "<tr>\n" + values + 4 * pages.centred_cell("&nbsp;") + "</tr>\n"
    expected = pages.page(pages.choosers(user="Abe"), pages.rights_body("Abe", [row]), pages.RIGHTS_REFRESH)
    assert visitor.page([("rights.x", "1")]) == expected


@pytest.mark.parametrize("length", [254, 255, 256, 1024, 5000])
def test_a_stored_description_or_password_that_does_not_fit_is_never_stored_shortened(visitor, accounts, length):
    accounts.change(f"insert into \"nordvale.system.user\" values ('dave', '{length * 'd'}', '{length * 'p'}')")
    before = accounts.contents()
    shown = (*USERS, ("dave", LONGEST * "d", LONGEST * "p"))
    assert visitor.page([("users.x", "1")]) == pages.users_page(shown)
    same = [("dave_file", LONGEST * "d"), ("dave_password", LONGEST * "p")]
    assert visitor.page([("users_refresh", ""), *same, ("submit_users", "")]) == pages.users_page(shown)
    assert accounts.contents() == before
    page = visitor.page([("users_refresh", ""), ("dave_file", "new"), ("submit_users", "")])
    if length <= LONGEST:
        assert page == pages.users_page((*USERS, ("dave", "new", LONGEST * "p")))
    else:
        assert page == error_page("Password or description is too long.\n")
        assert accounts.contents() == before


@pytest.mark.parametrize("length", LENGTHS)
@pytest.mark.parametrize("field", ["__newuser", "__newpass", "__newfile"])
def test_a_new_user_with_a_value_that_does_not_fit_is_not_added_shortened(visitor, accounts, field, length):
    new = {"__newuser": "dave", "__newfile": "d", "__newpass": "p", field: length * "n"}
    before = accounts.contents()
    page = visitor.page([("users_refresh", ""), *new.items(), ("submit_users", "")])
    if length <= LONGEST:
        assert page == pages.users_page((*USERS, tuple(new.values())))
    else:
        what = "New username is" if field == "__newuser" else "Password or description is"
        assert page == error_page(f"{what} too long.\n")
        assert accounts.contents() == before


@pytest.mark.parametrize("length", LENGTHS)
@pytest.mark.parametrize("field", ["mary_file", "mary_password", "admin_file"])
def test_a_changed_value_that_does_not_fit_is_not_stored_shortened(visitor, accounts, field, length):
    before = accounts.contents()
    value = (length - 1) * "v" + "'"
    page = visitor.page([("users_refresh", ""), (field, value), ("submit_users", "")])
    if length > LONGEST:
        assert page == error_page("Password or description is too long.\n")
        assert accounts.contents() == before
    else:
        user, _, column = field.partition("_")
        rows = {row[0]: list(row) for row in USERS}
        rows[user][1 if column == "file" else 2] = value
        assert page == pages.users_page(tuple(tuple(row) for row in rows.values()))


@pytest.mark.parametrize("length", LENGTHS)
def test_an_old_password_that_does_not_fit_is_a_wrong_one(visitor, accounts, length):
    accounts.change(f"update \"nordvale.system.user\" set password = '{LONGEST * 'm'}' where username = 'admin'")
    before = accounts.contents()
    posted = [("users_refresh", ""), ("admin_oldpassword", length * "m"), ("admin_password", "x"), ("submit_users", "")]
    page = visitor.page(posted, password=LONGEST * "m")
    if length != LONGEST:
        assert page == error_page("Invalid manager password specified.\n")
        assert accounts.contents() == before
    else:
        assert page == pages.users_page()
