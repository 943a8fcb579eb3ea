#include "tests/unit/host/message/support/torture.h"

namespace message_test {

namespace {

std::string multipart(const std::string& boundary, const std::string& body) {
  return "From: a@example.com\nTo: b@example.com\nSubject: parts\nMIME-Version: 1.0\n"
         "Content-Type: multipart/mixed; boundary=\"" +
         boundary + "\"\n\n" + body;
}

std::vector<Torture> headerCases() {
  using namespace std::string_literals;
  return {
      {"empty", ""},
      {"one LF", "\n"},
      {"one CRLF", "\r\n"},
      {"one CR", "\r"},
      {"one NUL", "\0"s},
      {"no header", "hello world\nsecond line\n"},
      {"no header, blank line", "hello world\n\nsecond line\n"},
      {"blank line first", "\nbody\n"},
      {"CRLF blank line first", "\r\nbody\r\n"},
      {"header only", "Subject: x\n"},
      {"header only without newline", "Subject: x"},
      {"header and blank line only", "Subject: x\n\n"},
      {"mbox line", "From a@example.com Thu Jan  1 00:00:00 1970\nSubject: x\n\nbody\n"},
      {"mbox line alone", "From a@example.com Thu Jan  1 00:00:00 1970\n"},
      {"mbox line and blank line", "From a@example.com Thu Jan  1 00:00:00 1970\n\nbody\n"},
      {"garbage first", "!garbage line\nSubject: x\n\nbody\n"},
      {"garbage inside", "Subject: x\ngarbage line\nFrom: a@example.com\n\nbody\n"},
      {"garbage last", "Subject: x\nFrom: a@example.com\ngarbage line\n\nbody\n"},
      {"no blank line", "Subject: x\nFrom: a@example.com\nthe body begins\nand goes on\n"},
      {"fold first", " folded\nSubject: x\n\nbody\n"},
      {"white space line", "Subject: x\n \nFrom: a@example.com\n\nbody\n"},
      {"folds", "Subject: x\n y\n\tz\nFrom:\n a@example.com\n\nbody\n"},
      {"space before colon", "Subject : x\nFrom\t: a@example.com\n\nbody\n"},
      {"empty values", "Subject:\nFrom: \nTo:\n\n"},
      {"empty name", ": x\nSubject: y\n\nbody\n"},
      {"eight bit name", "Sub\xC3\xA4ject: x\nFrom: a@example.com\n\nbody\n"},
      {"bare CR in header", "Subject: x\ry\nFrom: a@example.com\n\nbody\rmore\n"},
      {"only bare CRs", "Subject: x\rFrom: a@example.com\r\rbody\r"},
      {"doubled CRs", "Subject: x\r\r\nFrom: a@example.com\r\r\n\r\r\nbody\r\r\n"},
      {"NUL in header", "Subject: x\0y\nFrom: a@example.com\n\nbody\n"s},
      {"NUL in body", "Subject: x\n\nbo\0dy\n"s},
      {"mixed line ends", "Subject: x\r\nFrom: a@example.com\nTo: b@example.com\r\n\nbody\r\n"},
      {"doubled fields", "X-A: 1\nX-a: 2\nSubject: x\nX-A: 3\n\nbody\n"},
  };
}

std::vector<Torture> partCases() {
  return {
      {"plain parts", multipart("b", "--b\n\none\n--b\n\ntwo\n--b--\n")},
      {"preamble and epilogue", multipart("b", "pre\n--b\n\none\n--b--\nepi\nlogue\n")},
      {"unclosed", multipart("b", "--b\n\none\n--b\n\ntwo\n")},
      {"ends in a boundary", multipart("b", "--b\n\none\n--b")},
      {"ends in a closing boundary", multipart("b", "--b\n\none\n--b--")},
      {"blanks behind boundaries", multipart("b", "--b \t\n\none\n--b--  \n")},
      {"prefix of a boundary", multipart("bb", "--bb\n\n--b\none\n--bbb\n--bb--\n")},
      {"empty parts", multipart("b", "--b\n--b\n\n--b\n\n\n--b--\n")},
      {"header without blank line", multipart("b", "--b\nContent-Type: text/html\n--b--\n")},
      {"body without header", multipart("b", "--b\nplain words\n--b--\n")},
      {"no part", multipart("b", "only text\n")},
      {"closed at once", multipart("b", "--b--\nepilogue\n")},
      {"no boundary", "Content-Type: multipart/mixed\n\n--b\n\none\n--b--\n"},
      {"empty boundary", "Content-Type: multipart/mixed; boundary=\"\"\n\n--\n\none\n----\n"},
      {"boundary that ends in dashes", multipart("b--", "--b--\n\none\n--b----\nepilogue\n")},
      {"parts behind the end", multipart("b", "--b\n\none\n--b--\n--b\n\nhidden\n--b--\n")},
      {"same boundary inside",
       multipart("b",
                 "--b\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\ninner\n--b--\n"
                 "--b\n\nouter\n--b--\n")},
      {"inner unclosed",
       multipart("b",
                 "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\ninner\n"
                 "--b\n\nouter\n--b--\n")},
      {"nested message", multipart("b",
                                   "--b\nContent-Type: message/rfc822\n\nSubject: in\n\ninner\n"
                                   "--b--\n")},
      {"nested multipart message",
       multipart("b",
                 "--b\nContent-Type: message/rfc822\n\nSubject: in\nContent-Type: "
                 "multipart/mixed; boundary=c\n\n--c\n\ninner\n--c--\n\n--b--\n")},
      {"encoded nested message",
       multipart("b",
                 "--b\nContent-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n"
                 "U3ViamVjdDogeAoKYm9keQo=\n--b--\n")},
      {"empty nested message", multipart("b", "--b\nContent-Type: message/rfc822\n\n--b--\n")},
      {"nested message with mbox line",
       multipart("b",
                 "--b\nContent-Type: message/rfc822\n\nFrom x\nSubject: in\n\ninner\n--b--\n")},
      {"nested message without header",
       multipart("b", "--b\nContent-Type: message/rfc822\n\nno header here\n--b--\n")},
      {"digest",
       "Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: one\n\nfirst\n"
       "--b\nContent-Type: text/plain\n\nsecond\n--b--\n"},
      {"root message", "Content-Type: message/rfc822\n\nSubject: inner\n\nbody\n"},
      {"partial message",
       "Content-Type: message/partial; id=x; number=1; total=2\n\nSubject: inner\n\nbody\n"},
  };
}

}  // namespace

std::string withCrLf(const std::string& lf) {
  std::string result;
  for (const char c : lf) {
    if (c == '\n') result += '\r';
    result += c;
  }
  return result;
}

std::vector<Torture> smallTortures() {
  std::vector<Torture> all;
  for (const auto& cases : {headerCases(), partCases()}) {
    for (const Torture& torture : cases) {
      all.push_back(torture);
      all.push_back({torture.name + ", CRLF", withCrLf(torture.bytes)});
    }
  }
  const std::size_t withNewline = all.size();
  for (std::size_t i = 0; i < withNewline; ++i) {
    std::string bytes = all[i].bytes;
    if (bytes.empty()) continue;
    if (bytes.ends_with('\n')) {
      bytes.pop_back();
      if (bytes.ends_with('\r')) bytes.pop_back();
      all.push_back({all[i].name + ", last newline cut", bytes});
    } else {
      all.push_back({all[i].name + ", newline added", bytes + "\n"});
    }
  }
  return all;
}

std::string nestedMultiparts(std::size_t depth, std::size_t linesBetween, const char* newLine) {
  const std::string nl(newLine);
  std::string text = "Subject: deep" + nl;
  for (std::size_t i = 0; i < depth; ++i) {
    const std::string boundary = "level-" + std::to_string(i);
    text += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"" + nl + nl;
    for (std::size_t line = 0; line < linesBetween; ++line) {
      text += "--not a boundary of level " + std::to_string(i) + " at all" + nl;
    }
    text += "--" + boundary + nl;
  }
  text += nl + "innermost" + nl;
  for (std::size_t i = depth; i-- > 0;) text += "--level-" + std::to_string(i) + "--" + nl;
  return text;
}

std::string nestedMessages(std::size_t depth, const char* newLine) {
  const std::string nl(newLine);
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) {
    text += "Subject: level " + std::to_string(i) + nl + "Content-Type: message/rfc822" + nl + nl;
  }
  return text + "Subject: innermost" + nl + nl + "body" + nl;
}

std::string tinyParts(std::size_t count, const char* newLine) {
  const std::string nl(newLine);
  std::string text = "Subject: many" + nl + "Content-Type: multipart/mixed; boundary=b" + nl + nl;
  for (std::size_t i = 0; i < count; ++i) text += "--b" + nl + nl + "x" + nl;
  return text + "--b--" + nl;
}

std::string manyHeaders(std::size_t count, const char* newLine) {
  const std::string nl(newLine);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += "X-Header-" + std::to_string(i) + ": value " + std::to_string(i) + nl;
  }
  return text + nl + "body" + nl;
}

std::string oneLargeAttachment(std::size_t bytes, const char* newLine) {
  const std::string nl(newLine);
  std::string text =
      "From: a@example.com\nSubject: large\nMIME-Version: 1.0\n"
      "Content-Type: multipart/mixed; boundary=\"=_large\"\n\n--=_large\n"
      "Content-Type: text/plain\n\nSee below.\n--=_large\n"
      "Content-Type: application/octet-stream; name=\"large.bin\"\n"
      "Content-Transfer-Encoding: base64\n\n";
  if (nl != "\n") text = withCrLf(text);
  std::string line(76, 'A');
  for (std::size_t i = 0; i < line.size(); ++i) line[i] = static_cast<char>('A' + i % 26);
  line += nl;
  text.reserve(bytes + 1024);
  while (text.size() < bytes) text += line;
  return text + "--=_large--" + nl;
}

std::vector<Torture> largeTortures(std::size_t share) {
  std::vector<Torture> all;
  for (const char* newLine : {"\n", "\r\n"}) {
    const std::string suffix = newLine[0] == '\r' ? ", CRLF" : "";
    all.push_back({"1,000 headers" + suffix, manyHeaders(1000, newLine), false});
    all.push_back({"deep multiparts" + suffix, nestedMultiparts(20000 / share, 0, newLine), true});
    all.push_back({"deep messages" + suffix, nestedMessages(20000 / share, newLine), true});
    all.push_back({"a million parts" + suffix, tinyParts(1000000 / share, newLine), true});
    all.push_back(
        {"1,000 multiparts, 11 MB" + suffix, nestedMultiparts(1000, 300 / share, newLine), true});
    all.push_back({"50 MB" + suffix, oneLargeAttachment(50000000 / share, newLine), true});
  }
  const std::size_t withNewline = all.size();
  for (std::size_t i = 0; i < withNewline; ++i) {
    std::string bytes = all[i].bytes;
    bytes.pop_back();
    if (bytes.ends_with('\r')) bytes.pop_back();
    all.push_back({all[i].name + ", last newline cut", std::move(bytes), all[i].isLarge});
  }
  return all;
}

}  // namespace message_test
