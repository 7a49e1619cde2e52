# SPDX-License-Identifier: MIT
"""The public interface, read from the headers by Doxygen."""

import dataclasses
import re
import xml.etree.ElementTree


def normalised(declaration):
    """Returns a declaration without what does not change its meaning: newlines, blanks around signs,
    and words that describe the implementation."""
    text = re.sub(r"\b(extern|constexpr) ", "", " ".join(declaration.split()))
    text = re.sub(r"\s*([^\w\s])\s*", r"\1", text).strip().rstrip(";")
    return re.sub(r"=default$", "", text)


@dataclasses.dataclass
class Class:
    name: str
    header: str
    bases: list
    declarations: set = dataclasses.field(default_factory=set)
    functions: dict = dataclasses.field(default_factory=dict)  # name: parameter names per overload
    fields: set = dataclasses.field(default_factory=set)
    enumerators: dict = dataclasses.field(default_factory=dict)  # name: value


def parameters(member):
    return [parameter.findtext("declname", "") for parameter in member.findall("param")]


def value(enumerator):
    return enumerator.findtext("initializer", "").lstrip("= ")


def spelled(member, owner):
    """Returns a member as it would be declared in its class or namespace."""
    name = member.findtext("name")
    text = member.findtext("definition")
    taken_over = re.search(rf"\b(\w+)::{re.escape(name)}$", text)
    if taken_over and taken_over[1] != owner.rsplit("::")[-1]:
        return f"using {taken_over[0]}"
    text = text.replace(f"{owner}::{name}", name)
    if member.get("kind") == "function":
        text += member.findtext("argsstring")
    elif member.get("constexpr") == "yes" or "constexpr" in text:
        text += member.findtext("initializer", "")
    for word in ("explicit", "static"):
        if member.get(word) == "yes" and not text.startswith(f"{word} "):
            text = f"{word} {text}"
    return normalised(text)


class Interface:
    """Everything that an application can use. Members of no class are in `free`."""

    def __init__(self, folder):
        self.classes = {}
        self.free = {}  # header: a Class without a name
        self.types = set()
        for path in sorted(folder.glob("*.xml")):
            for compound in xml.etree.ElementTree.parse(path).getroot().iter("compounddef"):
                self._take(compound)

    def _take(self, compound):
        kind = compound.get("kind")
        name = compound.findtext("compoundname")
        if kind not in ("class", "struct", "file") or kind == "file" and not name.endswith(".h"):
            return
        header = compound.find("location").get("file")
        owner = name if kind != "file" else ""
        found = Class(owner, header, [base.text for base in compound.findall("basecompoundref")])
        (self.classes if owner else self.free)[name if owner else header] = found
        if owner:
            self.types.add(owner)
        for member in compound.findall("sectiondef/memberdef"):
            if member.get("prot") == "public":
                self._member(found, member)

    def _member(self, found, member):
        kind = member.get("kind")
        name = member.findtext("name")
        if kind == "enum":
            self.types.add(name)
            found.enumerators.update((entry.findtext("name"), value(entry))
                                     for entry in member.findall("enumvalue"))
        elif kind == "function":
            if not member.findtext("argsstring").endswith("=delete"):
                found.declarations.add(spelled(member, found.name))
                found.functions.setdefault(name, []).append(parameters(member))
        elif kind in ("variable", "typedef"):
            found.declarations.add(spelled(member, found.name))
            (self.types if kind == "typedef" else found.fields).add(name)

    def everything(self):
        return list(self.classes.values()) + list(self.free.values())

    def with_bases(self, name):
        """Returns a class and its base classes."""
        found = [self.classes[name]]
        for base in found[0].bases:
            found += self.with_bases(base)
        return found
