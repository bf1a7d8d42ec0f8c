"""What docs/security.md says of passwords in the files that Chromium leaves behind."""

import pytest

from support.browser import button, field, log_in, started_browser, switch_script_off, visit, wait_until

OF_MARY, OF_ANNA = "a-stored-password", "a-typed-password"


@pytest.fixture
def address(relay, either):
    either.set_password("mary", OF_MARY)
    return relay.address


def look_at_users(driver, address):
    log_in(driver)
    visit(driver, address, "users")
    field(driver, "__newuser").send_keys("anna")
    field(driver, "__newpass").send_keys(OF_ANNA)


def add_user_without_script(profile, address, *arguments):
    with started_browser(*arguments, accept_insecure_certs=True, profile=profile) as driver:
        switch_script_off(driver)
        look_at_users(driver, address)
        button(driver, "submit_users").click()
        wait_until(driver, lambda: field(driver, "anna_password"))


def places(profile, text):
    """The folders and files of the profile that have the text, as caches or as forms write it."""
    forms = [text.encode(encoding) for encoding in ("utf-8", "utf-16-le")]
    files = [path for path in profile.rglob("*") if path.is_file() and any(form in path.read_bytes() for form in forms)]
    return {path.relative_to(profile).parts[1] for path in files}


def test_without_script_passwords_are_in_cache_session_and_form_memory(address, tmp_path):
    add_user_without_script(tmp_path, address)
    assert {"Cache", "Sessions"} <= places(tmp_path, OF_MARY)
    assert {"Cache", "Sessions", "Web Data"} <= places(tmp_path, OF_ANNA)


def test_with_nginx_they_are_not_in_the_cache(front_of, address, tmp_path):
    add_user_without_script(tmp_path, front_of("nginx").address)
    assert "Sessions" in places(tmp_path, OF_MARY)
    assert "Cache" not in places(tmp_path, OF_MARY) | places(tmp_path, OF_ANNA)


def test_in_a_private_window_they_are_nowhere(address, tmp_path):
    add_user_without_script(tmp_path, address, "--incognito")
    assert places(tmp_path, OF_MARY) | places(tmp_path, OF_ANNA) == set()


def test_with_script_they_are_nowhere(address, tmp_path):
    with started_browser(profile=tmp_path) as driver:
        look_at_users(driver, address)
    assert places(tmp_path, OF_MARY) | places(tmp_path, OF_ANNA) == set()
