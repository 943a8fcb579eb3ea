"""What a text part says, decoded by Python's own codecs."""
import base64
import codecs
import html.parser
import re

# Names that mail uses for more than Python's codec of that name holds, and names it does not know.
_WIDER = {"shift_jis": "cp932", "gb2312": "gb18030", "gbk": "gb18030", "euc_kr": "cp949",
          "big5": "big5hkscs", "iso2022_jp": "iso2022_jp_ext", "iso8859-1": "cp1252",
          "ascii": "utf-8"}
_OTHER_NAMES = {"ks_c_5601-1987": "cp949", "x-sjis": "cp932", "x-gbk": "gb18030",
                "iso-8859-8-i": "iso8859-8", "cp-850": "cp850", "unicode-1-1-utf-7": "utf-7",
                "windows-31j": "cp932", "x-euc-jp": "euc_jp", "ansi_x3.110-1983": "latin-1"}

_META = re.compile(rb"(?i)<meta\s[^>]*?charset\s*=\s*[\"']?\s*([a-z0-9_.:-]+)")

_BASE64 = re.compile(rb"[A-Za-z0-9+/\s]*=*")


def charset_of(part):
    """The declared charset as Python names it: "" for none, None for one that it does not know."""
    value = part.message.get_param("charset")
    if isinstance(value, tuple):
        value = value[2]
    if not value and part.type == "text/html":
        meta = _META.search(part.message.get_payload(decode=True) or b"")
        value = meta.group(1).decode("ascii") if meta else ""
    if not value:
        return ""
    name = str(value).strip(" \t'\"").lower()
    try:
        return codecs.lookup(_OTHER_NAMES.get(name, name)).name
    except (LookupError, ValueError):
        return None


def transfer_encoding(part):
    return str(part.message.get("content-transfer-encoding", "7bit")).strip().lower()


def content_of(part):
    """The bytes behind the transfer encoding. Base64 ends at what is none, such as the lines that
    mailing lists put behind it; the parser would read on."""
    if transfer_encoding(part) == "base64":
        try:
            return base64.b64decode(_BASE64.match(part.content).group())
        except ValueError:
            pass
    return part.message.get_payload(decode=True)


def decoded(part):
    """The text, or None where its bytes do not read as what they are declared to be."""
    content = content_of(part)
    if content is None:
        return None
    charset = charset_of(part)
    if charset is None:
        return None
    for name in (charset or "ascii", _WIDER.get(charset or "ascii")):
        try:
            return content.decode(name) if name else None
        except (UnicodeError, ValueError):
            continue
    return None


def readable(part):
    """The text as a forgiving reader shows it."""
    text = decoded(part)
    if text is None:
        content = content_of(part) or part.content
        text = content.decode(charset_of(part) or "latin-1", "replace")
    return text


class _Shown(html.parser.HTMLParser):
    """The text that a document shows."""

    _HIDDEN = {"script", "style", "title", "head"}
    _BLOCKS = {"br", "div", "p", "tr", "td", "table", "li", "hr", "h1", "h2", "h3", "body"}

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.pieces = []
        self._hidden = ""

    def handle_starttag(self, tag, attrs):
        if tag in ("script", "style", "title") and not self._hidden:
            self._hidden = tag
        if tag in self._BLOCKS:
            self.pieces.append("\n")

    def handle_endtag(self, tag):
        if tag == self._hidden:
            self._hidden = ""
        if tag in self._BLOCKS:
            self.pieces.append("\n")

    def handle_data(self, data):
        if not self._hidden:
            self.pieces.append(data)


def shown_html(document):
    parser = _Shown()
    parser.feed(document)
    parser.close()
    return "".join(parser.pieces)


def lines_of(text):
    """The lines that say something, without the blanks around them."""
    return [line for line in (re.sub(r"[ \t\xa0]+", " ", line).strip()
                              for line in re.split(r"\r\n|\r|\n", text)) if line]


def count_lines(text, wanted):
    """How often the lines `wanted` stand in `text` behind each other."""
    lines = lines_of(text)
    size = len(wanted)
    return sum(lines[i:i + size] == wanted for i in range(len(lines) - size + 1))
