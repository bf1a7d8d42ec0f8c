#include "admin/table_name.h"

#include "admin/odbc.h"

namespace {

void put_name(TextWriter &out, const char *name)
{
    put(out, name);
}

void put_dotted(TextWriter &out, const TableName &name, void (*put_part)(TextWriter &, const char *))
{
    if (name.catalog[0]) {
        put_part(out, name.catalog);
        put(out, '.');
    }
    if (name.catalog[0] || name.schema[0]) {
        put_part(out, name.schema);
        put(out, '.');
    }
    put_part(out, name.table);
}

}

bool read_table_name(SQLHSTMT statement, TableName &name)
{
    Reading catalog = read_column(statement, 1, name.catalog);
    Reading schema = read_column(statement, 2, name.schema);
    Reading table = read_column(statement, 3, name.table);
    return catalog == Reading::whole && schema == Reading::whole && table == Reading::whole;
}

void build_row_key(const TableName &name, RowKey &key)
{
    TextWriter out{key};
    put_dotted(out, name, put_name);
}

void quote_table(const TableName &name, QuotedTable &quoted)
{
    TextWriter sql{quoted};
    put_dotted(sql, name, put_sql_name);
}
