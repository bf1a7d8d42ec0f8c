#include "admin/datasource.h"

#include "admin/error_page.h"
#include "admin/html_kit.h"
#include "admin/odbc.h"
#include "common/text.h"

#include <cstring>
#include <sql.h>
#include <sqlext.h>
#include <strings.h>

namespace {

// The product's full name and its driver's short name.
constexpr const char *drivers_of_interest[] = {"Tabrin", "NORDVALE_ISAM"};

bool is_driver_of_interest(const char *description)
{
    for (const char *driver : drivers_of_interest)
        if (strcasecmp(driver, description) == 0)
            return true;
    return false;
}

// Walks on to the next data source of interest. A name that does not fit into its buffer would name something else,
// so it is passed over.
bool next_datasource(SQLHENV env, SQLUSMALLINT direction, ColumnText &name)
{
    for (;; direction = SQL_FETCH_NEXT) {
        ColumnText description = "";
        SQLSMALLINT name_length, description_length;
        if (!succeeded(SQLDataSources(env, direction, reinterpret_cast<SQLCHAR *>(name), sizeof name, &name_length,
                                      reinterpret_cast<SQLCHAR *>(description), sizeof description,
                                      &description_length)))
            return false;
        if (is_driver_of_interest(description) && name_length < column_size)
            return true;
    }
}

// False when the posted name does not fit.
bool choose_datasource(SQLHENV env, const FormField *form_fields)
{
    for (const char *field : {"datasource", "initial_datasource"})
        if (const char *posted = getvalue(form_fields, field))
            return copy_text(datasource, posted);
    if (!next_datasource(env, SQL_FETCH_FIRST, datasource))
        datasource[0] = 0;
    return true;
}

void output_options(int socket, PageBuffer &page, SQLHENV env)
{
    ColumnText name;
    for (SQLUSMALLINT direction = SQL_FETCH_FIRST; next_datasource(env, direction, name); direction = SQL_FETCH_NEXT)
        output_option(socket, page, strcasecmp(name, datasource) == 0, name);
}

void output_chooser(int socket, PageBuffer &page, SQLHENV env, const char *select_name)
{
    http_printf(socket, page, "<tr>\n");
    http_printf(socket, page, "%sDatasource%s\n", HEADER_TDBEGIN, HEADER_TDEND);
    http_printf(socket, page, "%s<select name=%s size=1>\n", DETAIL_TDBEGIN, select_name);
    output_options(socket, page, env);
    http_printf(socket, page, "</select>\n");
    http_printf(socket, page, "<input type=hidden name=last_datasource value=%s>%s\n",
                html_unquoted(datasource).text, DETAIL_TDEND);
    if (strcmp(select_name, "datasource") == 0)
        http_printf(socket, page, "%s<input type=submit name=datasource_refresh value=\"Refresh\">%s\n",
                    DETAIL_TDBEGIN, DETAIL_TDEND);
    http_printf(socket, page, "</tr>\n");
}

}

int output_datasource(PageContext &context, PageBuffer &page, const FormField *form_fields, const char *select_name)
{
    SQLHENV env = nullptr;
    SQLAllocHandle(SQL_HANDLE_ENV, nullptr, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    bool fits = choose_datasource(env, form_fields);
    if (fits)
        output_chooser(context.request->socket, page, env, select_name);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    return fits ? 0 : return_error(context, "Data source name is too long.\n");
}
