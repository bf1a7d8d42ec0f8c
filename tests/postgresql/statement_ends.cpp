// statement_ends CONNECTION COUNT: makes up texts of quotes, comments, line ends and semicolons and asks PostgreSQL about
// each whether it is one statement or several. Where the adapter thinks otherwise, tells the text and fails. The texts are
// the same every time. Last line: how many were several, how many one; the rest was no SQL.

#include "statement.h"

#include <libpq-fe.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>

namespace {

constexpr const char *pieces[] = {
    "'",     "''",  "'a'",  "e'",    "E'",        "e'a'\n'", "\\",   "\\'",  "''\\'", "'\n'", "' -- ;\n'", "u&'",
    "U&\"",  "n'",  "b'",   "\"",    "\"b\"",     "$$",      "$a$",  "$1",   "$",     "e",    "x",         "1",
    "é",     "--",  "/*",   "*/",    "\n",        "\r",      "\t",   "\f",   "\v",    ";",    ";",         "select 1;",
    " || ",  "||",  ",",    " as x", "::text",    "select ", "-",    "/",    "*",     " ",    " uescape '!'",
};

// They close what may be open, so that many texts are SQL.
constexpr const char *ends[] = {
    "", ";select 1", "';select 1", "'; select 1--'", "\\; select 1", "$$;select 1", "*/;select 1", "\n;select 1",
    "' ; select '", "'';select 1 --'",
};

template <typename Array> const char *any_of(const Array &array, std::mt19937 &random)
{
    return array[random() % std::size(array)];
}

std::string made_up(std::mt19937 &random)
{
    std::string text = "select 'a'";
    for (unsigned left = random() % 9 + 1; left > 0; --left)
        text += any_of(pieces, random);
    return text + any_of(ends, random);
}

// Preparing takes one statement only.
constexpr char several_statements[] = "cannot insert multiple commands into a prepared statement";

}

int main(int count, char **arguments)
{
    if (count != 3)
        return 2;
    PGconn *connection = PQconnectdb(arguments[1]);
    if (PQstatus(connection) != CONNECTION_OK) {
        fputs(PQerrorMessage(connection), stderr);
        return 2;
    }
    const std::string refusal = adapted_statement("a;b");
    std::mt19937 random;
    int one = 0, several = 0, wrong = 0;
    for (int left = atoi(arguments[2]); left > 0; --left) {
        std::string text = made_up(random);
        PGresult *result = PQprepare(connection, "", text.c_str(), 0, nullptr);
        bool is_one = PQresultStatus(result) == PGRES_COMMAND_OK;
        bool is_several = std::string(PQresultErrorMessage(result)).find(several_statements) != std::string::npos;
        PQclear(result);
        bool is_refused = adapted_statement(text) == refusal;
        one += is_one;
        several += is_several;
        if ((is_one && is_refused) || (is_several && !is_refused)) {
            ++wrong;
            printf("%s, and the adapter %s it: %s\n", is_one ? "one" : "several", is_refused ? "refuses" : "takes",
                   text.c_str());
        }
    }
    PQfinish(connection);
    printf("%d several, %d one\n", several, one);
    return wrong ? 1 : 0;
}
