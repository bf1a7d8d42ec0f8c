"""What a browser makes of a page: its elements, their attributes and texts, as an HTML5 parser finds them."""

import html5lib

# Hidden fields that have no quotes around their value: what stands behind a blank in it is read as further attributes.
WITHOUT_QUOTES = ("last_datasource", "last_isamuser")


def attributes_of(element, mark):
    attributes = dict(element.attrib)
    if attributes.get("name") in WITHOUT_QUOTES:
        value = attributes.pop("value", "")
        further = {name: attributes.pop(name) for name in list(attributes) if name not in ("type", "name")}
        assert not any(further.values()), f"{further} behind {value}"
    return sorted((mark(name), mark(value)) for name, value in attributes.items())


def outline(page, value):
    """The page as a list of its elements in their order, `value` replaced by a mark wherever it is shown as it is."""
    shown = value.encode(errors="surrogateescape").decode(errors="replace").replace("\r\n", "\n").replace("\r", "\n")
    document = html5lib.parse(page.encode(errors="surrogateescape").decode(errors="replace"))

    def mark(text):
        return (text or "").replace(shown, "VALUE")

    return [
        (element.tag, attributes_of(element, mark), mark(element.text), mark(element.tail))
        if isinstance(element.tag, str)
        else ("comment", element.text)
        for element in document.iter()
    ]
