// What the server answers: a whole page, an error, or nothing that can be shown.
"use strict";

// Posts the fields. Gives a promise of {text}, a whole page, or of {kind, problem}, where the problem is a sentence for the
// reader and the kind one of
//   "too long"    nothing was sent
//   "refused"     the log-in was refused or given up
//   "unanswered"  no answer came, or none that a browser gives to a script
//   "cut"         the answer stopped in the middle
//   "error"       the server says what is wrong; the problem is its text
//   "stopped"     through `signal`
async function request_page(fields, signal) {
    const body = encoded_form(fields);
    if (encoded_length(body) > form_limit)
        return {kind: "too long", problem: `The form has ${counted(encoded_length(body), "byte")}, and the server takes ` +
            `${counted(form_limit, "byte")} at most.`};
    let response;
    try {
        // Not a relative address: one of a page that was opened with a user name in its address is refused.
        response = await fetch(`${location.origin}/isam.cgi`, {
            method: "POST", headers: {"Content-Type": "application/x-www-form-urlencoded"}, body, signal, cache: "no-store",
        });
        if (response.status === 401)
            return {kind: "refused", problem: "The log-in was refused or given up."};
        return read_answer(await response.text());
    } catch {
        if (signal?.aborted)
            return {kind: "stopped", problem: "Stopped."};
        return response
            ? {kind: "cut", problem: "The answer stopped in the middle."}
            : {kind: "unanswered", problem: "No answer came that a browser can show."};
    }
}

function read_answer(text) {
    // Values come escaped, so that no data can look like this.
    const error = /<H1>Error<\/H1>\r\n<p>([^]*?)<p>\r\n/.exec(text);
    if (error)
        return {kind: "error", problem: plain_text(error[1].replace(/<[^>]*>/g, " ")).trim()};
    if (!/<\/html>\s*$/i.test(text))
        return {kind: "cut", problem: "The answer stopped in the middle."};
    // What stands between the browser and the server, such as a proxy, may answer in its place.
    if (!text.includes("<main "))
        return {kind: "unanswered", problem: "The answer is no page of this server."};
    return {text};
}

const entities = {amp: "&", lt: "<", gt: ">", quot: '"', "#39": "'", "#96": "`", "#61": "="};

// The text that the server has escaped.
function plain_text(escaped) {
    return escaped.replace(/&(amp|lt|gt|quot|#39|#96|#61);/g, (_, entity) => entities[entity]);
}

