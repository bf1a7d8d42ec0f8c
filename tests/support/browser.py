"""A real browser with an administrator in front of it."""

import base64
import tempfile
from contextlib import contextmanager, nullcontext

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

from support.server import uninstrumented
from support.source import ADMINISTRATOR, PASSWORD

# What the reader sees of each page, in the order of the menu.
PAGES = ("users", "rights", "reports")

# Behind a connection that a browser has opened ahead and not used, the server is busy for 30 seconds.
SECONDS = 45


@contextmanager
def started_browser(*further_arguments, accept_insecure_certs=False, profile=None):
    """Its files are in the folder `profile`, or in one that is gone at the end."""
    options = webdriver.ChromeOptions()
    options.accept_insecure_certs = accept_insecure_certs
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    with nullcontext(profile) if profile else tempfile.TemporaryDirectory() as profile:
        for argument in (
            "--headless",
            "--no-sandbox",
            "--disable-gpu",
            "--disable-dev-shm-usage",
            "--disable-background-networking",
            "--disable-component-update",
            "--disable-sync",
            "--no-first-run",
            "--window-size=1200,900",
            f"--user-data-dir={profile}",
            *further_arguments,
        ):
            options.add_argument(argument)
        service = webdriver.chrome.service.Service("/usr/bin/chromedriver", env=uninstrumented())
        driver = webdriver.Chrome(service=service, options=options)
        try:
            driver.execute_cdp_cmd("Network.enable", {})
            yield driver
        finally:
            driver.quit()


def reset(driver):
    """Makes it a browser that was just started by an administrator with script, a large window and a light screen."""
    driver.get("about:blank")
    log_in(driver)
    resize(driver, 1200, 900)
    show_as(driver)
    driver.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})
    for log in ("browser", "performance"):
        driver.get_log(log)


def log_in(driver, user=ADMINISTRATOR, password=PASSWORD):
    """Sends the credentials with every request from now on, as a browser does after its log-in dialog."""
    credentials = base64.b64encode(f"{user}:{password}".encode()).decode()
    send_header(driver, Authorization=f"Basic {credentials}")


def send_header(driver, **headers):
    driver.execute_cdp_cmd("Network.setExtraHTTPHeaders", {"headers": headers})


def resize(driver, width, height=900):
    size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)


def show_as(driver, scheme="light", media=""):
    """`media` "print" shows what would be printed."""
    features = [{"name": "prefers-color-scheme", "value": scheme}]
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": media, "features": features})


def switch_script_off(driver):
    driver.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})


def wait_until(driver, condition):
    """Gives what the condition gives as soon as that is true; elements may come and go meanwhile."""
    wait = WebDriverWait(driver, SECONDS, poll_frequency=0.05, ignored_exceptions=[WebDriverException])
    return wait.until(lambda _: condition())


def find(driver, selector):
    return driver.find_element(By.CSS_SELECTOR, selector)


def find_all(driver, selector):
    return driver.find_elements(By.CSS_SELECTOR, selector)


def field(driver, name):
    return driver.find_element(By.NAME, name)


def box(driver, table, privilege):
    return field(driver, f"{'.'.join(table)}_{privilege}")


def button(driver, name):
    """A hidden field may bear the button's name too."""
    return find(driver, f"input[name={name}]:not([type=hidden])")


def press(driver, name):
    """Presses the button and waits for the page that answers. Without script the whole document is another one then."""
    with next_page(driver):
        button(driver, name).click()


@contextmanager
def next_page(driver):
    """What is done in it leads to another page, which is there in the end."""
    form = find(driver, "form")
    yield
    wait_until(driver, lambda: is_gone(form))
    wait_until(driver, lambda: driver.execute_script("return document.readyState") == "complete" and find(driver, "main"))
    wait_until(driver, lambda: not find_all(driver, ".busy"))


def is_gone(element):
    try:
        element.is_enabled()
        return False
    except WebDriverException:  # stale, or the page is between two documents
        return True


def press_and_agree(driver, name):
    """Presses the button, says yes to the question and waits for the page that answers."""
    with next_page(driver):
        button(driver, name).click()
        answer_question(driver)


def question(driver):
    """The open dialog."""
    return wait_until(driver, lambda: find(driver, "dialog[open]"))


def answer_question(driver, agree=True):
    question(driver)
    find(driver, "dialog[open] .actions button" + (".go" if agree else ".cancel")).click()
    wait_until(driver, lambda: not find_all(driver, "dialog[open]"))


def notices(driver):
    """(kind, text) of each message on the page."""
    return [(shown.get_attribute("class").split()[-1], shown.text) for shown in find_all(driver, ".notice")]


def visit(driver, site, page, user=None):
    """Goes to the page through the start page, and on to the user's rights."""
    driver.get(site)
    press(driver, page)
    if user:
        show_rights(driver, user)


def show_rights(driver, user):
    chooser = Select(field(driver, "isamuser"))
    # By its value is not possible where that holds a backslash.
    chooser.select_by_index([option.get_attribute("value") for option in chooser.options].index(user))
    press(driver, "rights_refresh")
