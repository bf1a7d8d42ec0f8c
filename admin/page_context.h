// What the builders of one administration page share. Everything here lives for the one request that a child process
// serves.

#pragma once

#include "common/product_config.h"
#include "server/form.h"
#include "server/request.h"

#include <sql.h>

// Every text that comes from a result column, and every name that goes into the connection, has at most
// column_size - 1 characters.
constexpr int column_size = 255;
using ColumnText = char[column_size];

// Owned by the procedure that builds the page; the handles are made by uri_connect and given back by uri_disconnect.
struct PageContext {
    SQLHENV env;
    SQLHDBC dbc;                // non-null once the page is connected
    SQLHSTMT stmt;              // queries that are read back
    SQLHSTMT stmt2;             // statements while `stmt` holds an open result
    Registry *registry;
    RequestRecord *request;     // borrowed
    FormField *form_fields;     // borrowed; may be null
    char dbo_user[256];         // the data source's administrator; empty when it could not be read
};

extern ColumnText datasource;   // the chosen ODBC data source
extern ColumnText logonuser;    // user name and password of the Basic credentials
extern ColumnText logonauth;
extern ColumnText isamuser;     // the user whose rights the page shows and changes
