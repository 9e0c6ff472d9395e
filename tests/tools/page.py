"""Reads the page of a report strictly: every element is closed where it should be, every reference leads somewhere."""
import html.parser
import re

VOID = {"meta", "link", "br", "hr", "img", "input"}


class Element:
    def __init__(self, name, attributes, parent):
        self.name, self.attributes, self.parent, self.children = name, dict(attributes), parent, []

    @property
    def text(self):
        return "".join(part if isinstance(part, str) else part.text for part in self.children)

    def all(self, name=None, **attributes):
        """The elements inside, in order, with this name and these attributes (class_ for class)."""
        wanted = {key.rstrip("_").replace("_", "-"): value for key, value in attributes.items()}
        for child in self.children:
            if isinstance(child, str):
                continue
            if (name is None or child.name == name) and all(child.attributes.get(k) == v for k, v in wanted.items()):
                yield child
            yield from child.all(name, **attributes)

    def one(self, name=None, **attributes):
        [found] = self.all(name, **attributes)
        return found

    def rows(self):
        """The texts of a table's body."""
        return [[cell.text for cell in row.all() if cell.name in ("th", "td")]
                for row in self.one("tbody").all("tr")]


class Page(html.parser.HTMLParser):
    """Raises AssertionError for a page that is not well formed."""

    def __init__(self, data):
        super().__init__(convert_charrefs=True)
        text = data.decode("utf-8")
        assert text.startswith("<!DOCTYPE html>\n")
        assert not re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f\ud800-\udfff\ufdd0-\ufdef\ufffe\uffff]", text)
        self.root = Element("", [], None)
        self.open = self.root
        self.feed(text)
        self.close()
        assert self.open is self.root, f"<{self.open.name}> is not closed"
        self.check_references()

    def handle_starttag(self, tag, attributes):
        names = [name for name, _ in attributes]
        assert len(names) == len(set(names)), (tag, names)
        element = Element(tag, attributes, self.open)
        self.open.children.append(element)
        if tag not in VOID:
            self.open = element

    def handle_startendtag(self, tag, attributes):
        assert any(e.name == "svg" for e in self.ancestors()), f"<{tag}/> outside a picture"
        self.handle_starttag(tag, attributes)
        self.open = self.open.parent

    def handle_endtag(self, tag):
        assert self.open.name == tag, f"</{tag}> inside <{self.open.name}>"
        self.open = self.open.parent

    def handle_data(self, data):
        self.open.children.append(data)

    def handle_comment(self, data):
        raise AssertionError("a comment: " + data)

    def unknown_decl(self, data):
        raise AssertionError("a declaration: " + data)

    def ancestors(self):
        element = self.open
        while element is not self.root:
            yield element
            element = element.parent

    def check_references(self):
        ids = [e.attributes["id"] for e in self.root.all() if "id" in e.attributes]
        assert len(ids) == len(set(ids)), "ids are not unique"
        for element in self.root.all():
            for name, value in element.attributes.items():
                assert not name.startswith("on"), (element.name, name)
                assert name != "src", element.name
                if name == "href":
                    assert value.startswith("#") and value[1:] in ids, value
                if name in ("aria-labelledby", "aria-describedby"):
                    for wanted in value.split():
                        assert wanted in ids, wanted
