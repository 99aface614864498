"""PublicInterface.py ABIXML > ABIXML

What abidw read out of a library, brought into the form that is kept as a baseline: what the exported symbols lead to
and nothing else, in an order of its own. A baseline then changes with the interface alone, not with a private type, a
source file's name or the order in which the compiler met things, and a reviewer can read what changed.
"""
import sys
import xml.etree.ElementTree as ET

# Records of the standard library: their name counts here, and the record that embeds them has its size and offsets.
# What is in them belongs to the soname of libstdc++.
FOREIGN_NAMESPACES = ("std", "__gnu_cxx")


def declaration_only(record):
    """The record by its name alone, if it is one."""
    if record.tag not in ("class-decl", "union-decl"):
        return record
    declared = ET.Element(record.tag, {"name": record.get("name"), "visibility": "default",
                                       "is-declaration-only": "yes", "id": record.get("id")})
    if record.get("is-struct"):
        declared.set("is-struct", "yes")
    return declared


class Corpus:
    """Every declaration of the file, whatever source file it came from."""

    def __init__(self, root):
        self.root = root
        self.declarations = []  # (namespaces, element), outermost records and functions
        self.home = {}          # id -> index of the declaration that holds the type
        self.language = {"address-size": "", "language": ""}
        for unit in root.iter("abi-instr"):
            self.language = {key: unit.get(key) for key in self.language}
            self.collect(unit, ())

    def collect(self, scope, namespaces):
        for element in scope:
            if element.tag == "namespace-decl":
                self.collect(element, namespaces + (element.get("name"),))
                continue
            if namespaces and namespaces[0] in FOREIGN_NAMESPACES:
                element = declaration_only(element)
            own_id = element.get("id")
            if own_id in self.home:
                # Several source files have it; the one with its contents holds.
                known = self.home[own_id]
                if self.declarations[known][1].get("is-declaration-only") and not element.get("is-declaration-only"):
                    self.declarations[known] = (namespaces, element)
                    self.own(known, element)
                continue
            self.declarations.append((namespaces, element))
            self.own(len(self.declarations) - 1, element)

    def own(self, index, element):
        for inner in element.iter():
            if inner.get("id"):
                self.home[inner.get("id")] = index

    def reached(self):
        """The indices of what an exported symbol leads to."""
        waiting = [index for index, (_, element) in enumerate(self.declarations)
                   if any(inner.get("elf-symbol-id") for inner in element.iter())]
        reached = set()
        while waiting:
            index = waiting.pop()
            if index in reached:
                continue
            reached.add(index)
            for inner in self.declarations[index][1].iter():
                for reference in ("type-id", "naming-typedef-id"):
                    if inner.get(reference) in self.home:
                        waiting.append(self.home[inner.get(reference)])
        return reached


def sort_key(declaration):
    namespaces, element = declaration
    return (namespaces, element.tag, element.get("mangled-name") or element.get("name") or "",
            ET.tostring(element, encoding="unicode"))


def main():
    corpus = Corpus(ET.parse(sys.argv[1]).getroot())
    kept = sorted((corpus.declarations[index] for index in corpus.reached()), key=sort_key)
    if not kept:
        sys.exit(f"PublicInterface.py: {sys.argv[1]} has no exported declaration: was the library built without -g?")

    interface = ET.Element("abi-corpus", corpus.root.attrib)
    interface.extend(part for part in corpus.root if part.tag in ("elf-function-symbols", "elf-variable-symbols"))
    unit = ET.SubElement(interface, "abi-instr", {**corpus.language, "path": "interface"})
    scopes = {(): unit}
    for namespaces, element in kept:
        for depth in range(len(namespaces)):
            inner = namespaces[:depth + 1]
            if inner not in scopes:
                scopes[inner] = ET.SubElement(scopes[inner[:-1]], "namespace-decl", {"name": inner[-1]})
        scopes[namespaces].append(element)
    ET.indent(interface)
    print(ET.tostring(interface, encoding="unicode"))


main()
