# SPDX-License-Identifier: MIT
"""Writes the manual pages of section 3 from the comments of the public headers, as Doxygen reads them.

A class has a page of its own, with the structures, functions and variables of its header. A header
without a class has one page, named after what it declares, or after the header.
"""

import argparse
import datetime
import pathlib
import re
import subprocess
import tempfile
import textwrap
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
# Attributes of the compiler and of the thread-safety analysis; they declare nothing.
WITHOUT_PAGE = ("base/export.h", "base/threadsafety.h")
LIST = [".Bl -tag -width Ds -compact"]
LIBRARY = "System services of the media client (libkestrova-system, \\-lkestrova-system)"
# Escaped, because the formatter turns these into typographic characters, and readers copy them.
SIGNS = {"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def read(doxygen, headers, folder):
    """Runs Doxygen on the headers. Returns every compound by its id."""
    settings = (ROOT / "docs" / "Doxyfile").read_text() + f"""
        INPUT = {" ".join(headers)}
        OUTPUT_DIRECTORY = "{folder}"
        USE_MDFILE_AS_MAINPAGE =
        GENERATE_HTML = NO
        JAVADOC_AUTOBRIEF = NO
        WARNINGS = NO
        WARN_IF_UNDOCUMENTED = NO
        WARN_IF_INCOMPLETE_DOC = NO
        WARN_NO_PARAMDOC = NO
        WARN_AS_ERROR = NO
        """
    subprocess.run([doxygen, "-"], cwd=ROOT, input=settings, text=True, check=True)
    compounds = {}
    for path in sorted((pathlib.Path(folder) / "xml").glob("*.xml")):
        for compound in xml.etree.ElementTree.parse(path).getroot().iter("compounddef"):
            compounds[compound.get("id")] = compound
    return compounds


def release_date():
    """Returns the date of the newest release, so that every build makes the same pages."""
    found = re.search(r"^## \S+ \((\d{4}-\d\d-\d\d)\)", (ROOT / "CHANGELOG.md").read_text(), re.M)
    day = datetime.date.fromisoformat(found[1])
    return f"{day:%B} {day.day}, {day.year}"


def escaped(text):
    return "".join(SIGNS.get(sign, sign) for sign in text)


def literal(text):
    """Returns lines of code for a .Bd -literal."""
    return [re.sub(r"^(?=[.'\\])|^$", r"\\&", escaped(line)) for line in text.splitlines()]


def flowing(element):
    """Returns the text of a paragraph, with references and code in bold."""
    text = escaped(element.text or "")
    for child in element:
        if child.tag not in ("parameterlist", "simplesect", "programlisting"):
            inner = flowing(child)
            marked = child.tag == "computeroutput" or (child.tag == "ref" and inner.endswith("()"))
            text += f"\\fB{inner.removesuffix('()')}\\fP{'()' if inner.endswith('()') else ''}" \
                if marked else inner
        text += escaped(child.tail or "")
    return text


def sentences(text):
    """Returns filled text as lines. Each sentence starts a line, so that the formatter spaces it correctly."""
    text = re.sub(r"\s+", " ", text).strip()
    text = re.sub(r" (?=[.,;:])", "", text)
    lines = re.sub(r"(?<=[.?!]) |(?<=[.?!]\)) ", "\n", text).splitlines()
    return [re.sub(r"^(?=[.'])", r"\\&", line) for line in lines]


def finished(text):
    text = re.sub(r"\s+", " ", text).strip()
    return text if not text or text[-1] in ".:" else text + "."


def capital(text):
    """Capitalises a note that follows a name, unless the note starts with a name."""
    return re.sub(r"^(?!errno)[a-z](?=[a-z]*[ ,;.:])", lambda first: first[0].upper(), text)


def paragraphs(thing):
    """Returns the description without parameters and result, as one text per paragraph."""
    texts = [flowing(one) for part in ("briefdescription", "detaileddescription")
             for one in thing.findall(f"{part}/para")]
    return [text for text in texts if text.strip()]


class Page:
    def __init__(self, name, header):
        self.name = name
        self.header = header
        self.about = None       # the comment of the class, or of the header
        self.brief = ""
        self.compounds = []     # classes and structures, those inside a class after it
        self.free = []          # members of the header that belong to no class

    def members(self):
        return [(owner, one) for owner in self.compounds for one in public(owner)] + \
            [(None, one) for one in self.free]


def public(compound):
    """Returns the documented members in the order of the header."""
    members = [one for one in compound.findall("sectiondef/memberdef")
               if one.get("prot") == "public" and one.get("kind") != "friend"
               and not (one.findtext("argsstring") or "").endswith("=delete")]
    return sorted(members, key=lambda one: int(one.find("location").get("line")))


def pages(compounds):
    files = {one.find("location").get("file"): one for one in compounds.values()
             if one.get("kind") == "file"}
    found = []
    for header, file in sorted(files.items()):
        inside = [compounds[one.get("refid")] for one in file.findall("innerclass")]
        inside.sort(key=lambda one: int(one.find("location").get("line")))
        free = [one for one in public(file) if one.get("kind") != "define"]
        if header in WITHOUT_PAGE:
            continue
        classes = [one for one in inside if one.get("kind") == "class"]
        here = []
        for one in classes:
            name = one.findtext("compoundname")
            here.append(Page(name, header))
            here[-1].about = one
            here[-1].compounds = [one] + [other for other in inside if
                                          other.findtext("compoundname").startswith(name + "::")]
        if not classes:
            names = [one.findtext("compoundname") for one in inside
                     if "::" not in one.findtext("compoundname")]
            names += [one.findtext("name") for one in free]
            here.append(Page(names[0] if len(names) == 1 else pathlib.Path(header).stem, header))
            here[0].about = file
        last = here[-1]
        last.free = free
        # Structures that belong to no class come first: the class uses them.
        last.compounds = [one for one in inside if not any(one in page.compounds for page in here)] + \
            last.compounds
        for page in here:
            told = paragraphs(page.about if len(here) > 1 else file)[0]
            page.brief = " ".join(told.split()).partition(". ")[0].rstrip(".")
        found += here
    return found


def tidy(declaration):
    declaration = re.sub(r"\s*([*&]+)\s*(?=[\w,)])(?!const\b)", r"\1 ", declaration)
    declaration = re.sub(r"\(([*&]) ", r"(\1", declaration)
    declaration = re.sub(r"([*&]) (?=[,)])", r"\1", declaration)
    declaration = re.sub(r"\s*=\s*default$", "", declaration)
    declaration = re.sub(r"\s+=\s*|(?<=\w)=(?=\w)", " = ", declaration)
    declaration = re.sub(r"\)=0$", ") = 0", declaration)
    return declaration.replace(",...", ", ...").replace("< ", "<").replace(" >", ">")


def declared(member, owner):
    """Returns a member's declaration, without attributes, bodies and initial values."""
    name = member.findtext("name")
    text = member.findtext("definition")
    if owner is not None:
        own = owner.findtext("compoundname")
        foreign = re.search(rf"\b(\w+)::{re.escape(name)}$", text)
        if foreign and foreign[1] != own.rsplit("::")[-1]:
            return f"using {foreign[0]};"
        text = text.replace(f"{own}::{name}", name)
    text = text.removesuffix(member.findtext("argsstring") or "") + (member.findtext("argsstring") or "")
    if "constexpr" in text.split() and member.get("kind") == "variable":
        text += " " + member.findtext("initializer", "")
    for word in ("explicit", "static", "virtual"):
        if (member.get(word) == "yes" or word == member.get("virt", "").removeprefix("pure-")
                and "override" not in text) and word not in text.split():
            text = f"{word} {text}"
    if member.find("templateparamlist") is not None:
        parameters = ", ".join(one.findtext("type") for one in member.findall("templateparamlist/param"))
        text = f"template <{parameters}>\n{text}"
    if member.get("kind") == "variable" and owner is None and not text.startswith("extern "):
        text = f"extern {text}"
    return "\n".join(tidy(line) for line in text.splitlines()) + ";"


def inherited(owner, member):
    """Returns whether a member comes from another class through a using-declaration."""
    return declared(member, owner).startswith("using ") and member.get("kind") != "typedef"


def wrapped(declaration, indent):
    """Wraps declarations of more than 72 columns at their first parameter."""
    lines = []
    for line in declaration.splitlines():
        hang = " " * (line.index("(") + 1 if "(" in line else 4)
        if "(*)" in line:
            hang = " " * (line.index("(*)(") + 4)
        # Wrap only between parameters.
        whole = re.sub(r"(?<!,) ", "\0", line) if "(" in line else line
        lines += textwrap.wrap(whole, 72 - indent, subsequent_indent=hang, break_long_words=False,
                               break_on_hyphens=False)
    return [" " * indent + line.replace("\0", " ") for line in lines]


def synopsis(page):
    blocks = []
    # An enumeration is described later, with its values.
    shown = [one for one in page.free if one.get("kind") != "enum"]
    if shown:
        blocks.append([line for one in shown for line in wrapped(declared(one, None), 0)])
    for owner in page.compounds:
        bases = [f"public {one.text}" for one in owner.findall("basecompoundref")
                 if one.get("prot") == "public"]
        head = f"{owner.get('kind')} {owner.findtext('compoundname')}"
        lines = [head + (f" : {', '.join(bases)}" if bases else "") + " {"]
        if owner.get("kind") == "class":
            lines.append("public:")
        for one in public(owner):
            if one.get("kind") != "enum":
                lines += wrapped(declared(one, owner), 4)
        blocks.append(lines + ["};"])
    out = [f".In {page.header}"]
    for lines in blocks:
        out += [".Bd -literal", *literal("\n".join(lines)), ".Ed"]
    return out


def text_of(texts):
    out = []
    for text in texts:
        out += ([".Pp"] if out else []) + sentences(finished(text))
    return out


def values(member):
    out = [".Pp", *LIST]
    for number, value in enumerate(member.findall("enumvalue")):
        text = " ".join(paragraphs(value))
        shown = value.findtext("initializer", "").lstrip("= ") or str(number)
        out += [f".It Dv {value.findtext('name')} Pq {shown}", *sentences(finished(capital(text)))]
    return out + [".El"]


def parameters(member):
    items = member.findall(".//parameterlist[@kind='param']/parameteritem")
    if not items:
        return []
    out = [".Pp", *LIST]
    for item in items:
        name = item.find("parameternamelist/parametername")
        text = " ".join(flowing(one) for one in item.findall("parameterdescription/para"))
        out += [f".It Fa {name.text}" + (" Pq out" if name.get("direction") == "out" else ""),
                *sentences(finished(capital(text)))]
    return out + [".El"]


def result(member):
    found = member.find(".//simplesect[@kind='return']")
    if found is None:
        return []
    return sentences(finished("Returns " + " ".join(flowing(one) for one in found.findall("para"))))


def signature(member, owner):
    name = member.findtext("name")
    if member.get("kind") == "function":
        names = [one.findtext("declname") or one.findtext("type") for one in member.findall("param")]
        if name == "operator<<":
            names = [tidy("".join(one.find("type").itertext()) + ",").rstrip(",")
                     for one in member.findall("param")]
        return f".It Fn {name} " + " ".join(f'"{escaped(one)}"' for one in names)
    if member.get("kind") == "enum":
        scope = owner.findtext("compoundname") + "::" if owner is not None else ""
        return f".It Vt enum {scope}{name}"
    return f".It {'Vt' if member.get('kind') == 'typedef' else 'Va'} {name}"


def entry(member):
    """Returns the text below the name of a member."""
    texts = paragraphs(member)
    out = text_of(texts)
    listed = parameters(member)
    returned = result(member)
    if member.get("kind") == "enum":
        return out + values(member)
    out += listed
    if returned:
        out += ([".Pp"] if listed or len(texts) > 1 else []) + returned
    return out


def entries(members, compact=False):
    out = []
    for owner, member in members:
        body = entry(member) if member.get("kind") != "variable" else \
            sentences(finished(capital(" ".join(paragraphs(member)))))
        if not body:
            continue
        head = signature(member, owner).strip()
        if out and body == out[-1][1] and member.findtext("name") == out[-1][2]:
            out[-1][0].append(head)     # overloads with one comment
        else:
            out.append(([head], body, member.findtext("name")))
    lines = []
    for heads, body, _ in out:
        lines += heads if len(heads) == 1 else \
            [".It Xo", *(head.removeprefix(".It").replace(" ", ".", 1) + " ," for head in heads[:-1]),
             heads[-1].removeprefix(".It").replace(" ", ".", 1), ".Xc"]
        lines += body
    return [*(LIST if compact else [".Bl -tag -width Ds"]), *lines, ".El"] if out else []


def fields(owner):
    """Returns the description of a structure: its comment and a list of its fields."""
    name = owner.findtext("compoundname")
    own = public(owner)
    inside = [one for one in own if one.get("kind") in ("enum", "function", "typedef")]
    plain = [one for one in own if one.get("kind") == "variable"]
    out = [f".Ss struct {name}", *text_of(paragraphs(owner))]
    if plain:
        out += [".Pp", *entries([(owner, one) for one in plain], compact=True)]
    return out + entries([(owner, one) for one in inside])


def description(page):
    out = text_of([text for text in paragraphs(page.about) if not text.startswith("Threads: ")])
    classes = [one for one in page.compounds if one.get("kind") == "class"]
    loose = [(None, one) for one in page.free]
    own = [(owner, one) for owner in classes for one in public(owner)]
    enums = [one for one in own + loose if one[1].get("kind") == "enum"]
    if enums:
        out += [".Ss Constants", *entries(enums)]
    for owner in page.compounds:
        if owner.get("kind") == "struct":
            out += fields(owner)
    rest = [one for one in loose + own if one[1].get("kind") != "enum" and not inherited(*one)]
    if len(rest) == 1 and not page.compounds:
        return entry(rest[0][1])
    if rest:
        if any(line.startswith(".Ss") for line in out):
            out.append(".Ss Operations")
        out += entries(rest)
    return out


def threads(page):
    return [capital(text.removeprefix("Threads: ")) for text in paragraphs(page.about)
            if text.startswith("Threads: ")]


def examples(page):
    return ["".join(node_text(one)) for one in page.about.iter("programlisting")]


def node_text(listing):
    for line in listing.findall("codeline"):
        for one in line.iter():
            if one.tag == "sp":
                yield " " * int(one.get("value", "1"))
            else:
                yield one.text or ""
            if one is not line:
                yield one.tail or ""
        yield "\n"


def see_also(page, everything, owners):
    """Returns the pages that the comments refer to, and the manual pages of calls and tools in them."""
    told = [page.about] + page.compounds + page.free
    used = {owners.get(ref.get("refid").rsplit("_1", 1)[0], owners.get(ref.get("refid")))
            for one in told for ref in one.iter("ref")}
    ours = sorted({name for name in used if name and name != page.name}, key=str.lower)
    texts = " ".join("".join(part.itertext()) for one in told for part in one.iter()
                     if part.tag in ("briefdescription", "detaileddescription"))
    other = {(name, section) for name, section in re.findall(r"\b([\w-]+)\(([1-8])\)", texts)}
    other |= {(name, "8") for name in re.findall(r'"/s?bin/([\w.]+)', texts) if name != "sh"}
    other -= {(name, "3") for name in everything}
    rows = [(name, "3") for name in ours] + [("kestrova-system", "7")] + sorted(other)
    rows = sorted(set(rows), key=lambda row: (row[1], row[0].lower()))
    return [f".Xr {name} {section}" + (" ," if at + 1 < len(rows) else "")
            for at, (name, section) in enumerate(rows)]


def written(page, everything, owners):
    names = [page.name]
    names += [one.findtext("compoundname") for one in page.compounds
              if "::" not in one.findtext("compoundname")]
    names += [one.findtext("name") for one in page.free if one.get("kind") != "enum"]
    names = list(dict.fromkeys(names))
    out = ['.\\" SPDX-License-Identifier: MIT',
           f'.\\" Made by script/manual.py from {page.header}.',
           f".Dd {release_date()}", f".Dt {page.name.upper()} 3", ".Os Kestrova", ".Sh NAME"]
    out += [f".Nm {name}" + (" ," if at + 1 < len(names) else "") for at, name in enumerate(names)]
    brief = re.sub(r"^[A-Z](?![A-Z])", lambda first: first[0].lower(), page.brief)
    out += [".Nd " + brief.replace('"', "\\(dq"), ".Sh LIBRARY", LIBRARY, ".Sh SYNOPSIS", *synopsis(page),
            ".Sh DESCRIPTION", *description(page)]
    if threads(page):
        out += [".Sh THREAD SAFETY", *text_of(threads(page))]
    programs = [f"examples/{path.name}" for path in sorted((ROOT / "examples").glob("*.cpp"))
                if f"#include <{page.header}>" in path.read_text()]
    if examples(page) or programs:
        out.append(".Sh EXAMPLES")
    for example in examples(page):
        out += [".Bd -literal -offset indent", *literal(example), ".Ed"]
    if programs:
        listed = " and ".join([", ".join(programs[:-1]), programs[-1]] if programs[1:] else programs)
        out.append(f"See {listed}, which {'are' if programs[1:] else 'is'} installed with the headers.")
    return "\n".join(out + [".Sh SEE ALSO", *see_also(page, everything, owners), ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path, help="where the pages go")
    parser.add_argument("headers", nargs="+", help="the public headers, from the root of the tree")
    parser.add_argument("--doxygen", default="doxygen", help="the program to run")
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as folder:
        compounds = read(options.doxygen, options.headers, folder)
    made = pages(compounds)
    owners = {}
    for page in made:
        owners.update({one.get("id"): page.name for one in page.compounds})
        owners.update({one.get("id"): page.name for one in page.free})
    everything = {page.name for page in made}
    for old in options.folder.glob("*.3"):
        old.unlink()
    for page in made:
        (options.folder / f"{page.name}.3").write_text(written(page, everything, owners))


if __name__ == "__main__":
    main()
