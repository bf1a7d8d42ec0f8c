// How a form is written so that the server reads what is meant: it takes a field's name as it comes and decodes only the
// value, and it cuts off what is too long.
"use strict";

// The server reads 32768 bytes of a request at a time, header and body together; the rest is left to the header.
const form_limit = 30000;

// The body for [name, value] pairs. A form must not end in an empty value, which gets no answer from the server, nor begin
// with a name whose second character is a blank, which is taken for the rest of a header line.
function encoded_form(fields) {
    return fields.map(([name, value]) => `${name}=${encoded_value(value)}`).join("&");
}

function encoded_value(value) {
    // Half a pair of surrogates has no encoding.
    return encodeURIComponent(value.replace(/\p{Surrogate}/gu, "\uFFFD"));
}

// Its length in bytes.
function encoded_length(text) {
    return new TextEncoder().encode(text).length;
}

// Why no field can bear this name, or "".
function name_problem(name) {
    if (name.includes("="))
        return "its name holds a “=”";
    // The part of a form that arrives with the request's header is searched for further header lines.
    if (name.includes(":"))
        return "its name holds a “:”";
    if (/^ /.test(name))
        return "its name begins with a blank";
    if (/[\r\n]/.test(name))
        return "its name holds the end of a line";
    if (name.includes("\uFFFD"))
        return "its name holds a character that cannot be read";
    return "";
}

// The fields that go to the page `name` ("users", "rights", "reports"), with those that change something in it. `user` is
// the one whose rights the rights page is to show; without it the server takes the first one. The data source is that of
// what `page` shows, which need not be the one that is chosen in its list by now.
function page_fields(page, name, user, changes, datasource = page.datasource) {
    return [["datasource", datasource], ["last_datasource", datasource], ...user ? [["isamuser", user]] : [],
        [`${name}_refresh`, ""], ...changes, ["form_end", "1"]];
}

// Those that only show the page.
function view_fields(page, name, user, datasource) {
    return page_fields(page, name, user, [], datasource);
}

// What the list of data sources says now, which need not be what the page shows.
function chosen_datasource(page) {
    return datasource_list(page)?.value || page.datasource;
}

function datasource_list(page) {
    return page.form?.querySelector("select[name=datasource], select[name=initial_datasource]");
}
