"""The pictures of the documentation: the pages as a person sees them, with the sample data source behind them."""

import subprocess
import sys
import tempfile
from pathlib import Path

from support import browser as browsers
from support.browser import box, button, field, find, question, visit, wait_until
from support.server import BUILD, ROOT, RunningServer, install_html, write_product_ini

PASSWORD = "sample_admin"


def take(driver, folder, name):
    driver.save_screenshot(str(folder / f"{name}.png"))


def click(driver, element):
    """Where another one may lie above it."""
    driver.execute_script("arguments[0].click()", element)


def filter_list(driver, text):
    find(driver, ".filter input").send_keys(text)
    driver.execute_script("document.activeElement.blur()")


def start_page(driver, site, folder):
    browsers.resize(driver, 1180, 420)
    driver.get(site)
    take(driver, folder, "start")


def users_page(driver, site, folder):
    browsers.resize(driver, 1180, 860)
    visit(driver, site, "users")
    field(driver, "carla_file").send_keys(", on leave")
    click(driver, field(driver, "david_checkbox"))
    field(driver, "__newuser").send_keys("mia")
    field(driver, "__newpass").send_keys("summer")
    driver.execute_script("document.activeElement.blur(); scrollTo(0, 0)")
    take(driver, folder, "users")
    button(driver, "submit_users").click()
    question(driver)
    take(driver, folder, "users-question")


def rights_page(driver, site, folder):
    browsers.resize(driver, 1180, 860)
    visit(driver, site, "rights", user="carla")
    filter_list(driver, "sales crm")
    for table, privilege in ((("sales", "crm", "contact"), "update"), (("sales", "crm", "customer"), "delete")):
        click(driver, box(driver, table, privilege))
    take(driver, folder, "rights")
    button(driver, "submit_selection").click()
    question(driver)
    take(driver, folder, "rights-question")
    with browsers.next_page(driver):
        browsers.answer_question(driver)


def reports_page(driver, site, folder):
    browsers.resize(driver, 1180, 860)
    visit(driver, site, "reports")
    click(driver, find(driver, ".report .actions button"))
    wait_until(driver, lambda: find(driver, ".matrix tbody tr"))
    wait_until(driver, lambda: find(driver, ".report .actions button").text == "Gather again")
    driver.execute_script("document.querySelector('.tools').scrollIntoView()")
    take(driver, folder, "reports")


def phone(driver, site, folder):
    browsers.resize(driver, 390, 844)
    visit(driver, site, "rights", user="elena")
    filter_list(driver, "sales orders")
    driver.execute_script("document.querySelector('.tools').scrollIntoView()")
    take(driver, folder, "phone")


def dark(driver, site, folder):
    browsers.resize(driver, 1180, 700)
    browsers.show_as(driver, "dark")
    visit(driver, site, "rights", user="elena")
    filter_list(driver, "sales orders")
    take(driver, folder, "dark")


def main(folder):
    folder.mkdir(parents=True, exist_ok=True)
    install_html()
    write_product_ini()
    with tempfile.TemporaryDirectory() as odbc:
        subprocess.run([ROOT / "script" / "sample", odbc, BUILD], check=True)
        server = RunningServer(environment={"ODBCSYSINI": odbc, "ODBCINI": "/dev/null"})
        try:
            with browsers.started_browser() as driver:
                browsers.reset(driver)
                browsers.log_in(driver, password=PASSWORD)
                for picture in (start_page, users_page, rights_page, reports_page, phone, dark):
                    picture(driver, f"http://localhost:{server.port}/", folder)
        finally:
            server.stop()


if __name__ == "__main__":
    main(Path(sys.argv[1]))
