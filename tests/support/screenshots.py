"""The pictures of the documentation: the pages as a person sees them, with the sample data source behind them."""

import subprocess
import sys
import tempfile
from pathlib import Path


from support import browser as browsers
from support.browser import box, button, field, find, question, visit, wait_until
from support.server import BUILD, ROOT, RunningServer, install_html, write_product_ini

PASSWORD = "sample_admin"


def take(driver, folder, name, bottom=None):
    """The window's content, or only down to the end of the element that is named."""
    path = folder / f"{name}.png"
    if bottom:
        end = driver.execute_script("return document.querySelector(arguments[0]).getBoundingClientRect().bottom", bottom)
        browsers.resize(driver, driver.execute_script("return innerWidth"), int(end) + 16)
    driver.save_screenshot(str(path))


def narrow(driver):
    browsers.resize(driver, 390, 844)


def wide(driver):
    browsers.resize(driver, 1180, 900)


def start_page(driver, site, folder):
    driver.get(site)
    take(driver, folder, "start", bottom="footer")


def users_page(driver, site, folder):
    visit(driver, site, "users")
    field(driver, "carla_file").send_keys(", on leave")
    field(driver, "jonas_checkbox").click()
    field(driver, "__newuser").send_keys("mia")
    field(driver, "__newpass").send_keys("summer")
    driver.execute_script("scrollTo(0, 0)")
    take(driver, folder, "users", bottom="input[name=submit_users]")
    wide(driver)
    button(driver, "submit_users").click()
    question(driver)
    take(driver, folder, "users-question")


def rights_page(driver, site, folder):
    visit(driver, site, "rights", user="carla")
    take(driver, folder, "rights-as-read", bottom="tbody tr:nth-child(12)")
    wide(driver)
    for table, privilege in ((("sales", "crm", "contact"), "update"), (("sales", "crm", "customer"), "delete")):
        box(driver, table, privilege).click()
    driver.execute_script("scrollTo(0, 0)")
    take(driver, folder, "rights", bottom="tbody tr:nth-child(8)")
    wide(driver)
    button(driver, "submit_selection").click()
    question(driver)
    take(driver, folder, "rights-question")
    browsers.answer_question(driver)
    wait_until(driver, lambda: browsers.notices(driver))
    driver.execute_script("scrollTo(0, 0)")
    take(driver, folder, "rights-done", bottom="tbody tr:nth-child(5)")


def phone(driver, site, folder):
    narrow(driver)
    visit(driver, site, "rights", user="elena")
    driver.execute_script("document.querySelector('.tools').scrollIntoView()")
    take(driver, folder, "phone")


def dark(driver, site, folder):
    wide(driver)
    browsers.show_as(driver, "dark")
    visit(driver, site, "rights", user="elena")
    take(driver, folder, "dark", bottom="tbody tr:nth-child(8)")
    browsers.show_as(driver)


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
                for picture in (start_page, users_page, rights_page, phone, dark):
                    wide(driver)
                    picture(driver, f"http://localhost:{server.port}/", folder)
        finally:
            server.stop()


if __name__ == "__main__":
    main(Path(sys.argv[1]))
