"""Holds the pages of the manual to what they are for: each program, document and function has one, man and groff have
nothing to complain of, whatis finds them, and nothing in them depends on when and where they were made.

Usage: pages_test.py SHARE HEADER [--without-functions]
"""

import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

MAN = Path(sys.argv[1]).resolve() / "man"
HEADER = Path(sys.argv[2]).read_text(encoding="utf-8")
DOCUMENTS = {"man1/vxpadctl.1", "man1/vxpad-emulator.1", "man1/vxpad-emulator-control.1", "man5/vxpadcom-recording.5",
             "man5/vxpadcom-ids.5", "man7/libvxpadcom.7"}
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}

findings = []


def output_of(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False, env=ENVIRONMENT, cwd=MAN)
    if result.returncode != 0:
        findings.append(f"{' '.join(command)}: status {result.returncode}")
    return result.stdout, result.stderr


def show(name):
    """A page as man shows it."""
    page, section = Path(name).name.rsplit(".", 1)
    shown, complaints = output_of("man", f"--manpath={MAN}", "--warnings", section, page)
    complaints += output_of("groff", "-mandoc", "-ww", "-Tutf8", "-z", name)[1]
    findings.extend(f"{name}: {line}" for line in complaints.splitlines()[:3])
    if "SEE ALSO" not in shown:
        findings.append(f"{name}: refers to no other")
    if f" {section} \"\" \"libvxpadcom " not in texts[name].splitlines()[0] or str(MAN.parent) in texts[name]:
        findings.append(f"{name}: tells when or where it was made")
    return shown


def names_of(shown):
    """What whatis finds a page by."""
    head = re.search(r"^NAME\n(.*?)\n\n", shown, re.MULTILINE | re.DOTALL)
    return re.sub(r"\s+", " ", head.group(1)).split(" - ")[0].strip().split(", ") if head else []


texts = {str(page.relative_to(MAN)): page.read_text(encoding="ascii") for page in MAN.glob("man*/*")}
links = {name: text[len(".so "):].strip() for name, text in texts.items() if text.startswith(".so ")}
pages = sorted(texts.keys() - links.keys())
findings.extend(f"{name} is missing" for name in sorted(DOCUMENTS - texts.keys()))
findings.extend(f"{name} leads nowhere" for name, page in links.items() if page not in pages)

functions = re.findall(r"^VXPADCOM_API (?!extern)[^(;]*?(\w+)\(", HEADER, re.MULTILINE)
if "--without-functions" in sys.argv:
    functions = []
elif len(functions) < 40:
    findings.append(f"the header declares only {len(functions)} functions")
else:
    output_of("man", f"--manpath={MAN}", "3", functions[0])

with ThreadPoolExecutor(2) as pool:
    shown = dict(zip(pages, pool.map(show, pages)))

for name in texts:
    title = Path(name).stem
    if title not in names_of(shown.get(links.get(name, name), "")) and not title.startswith("vxpadcom_"):
        findings.append(f"{name}: whatis does not find it")

for function in functions:
    text = shown.get(links.get(f"man3/{function}.3", ""), "")
    documentation = text.partition("\nFunction Documentation\n")[2]
    if not re.search(rf"^   \w[\w *]*\b{function} \(.*\n(?:       .*\n)*?       [A-Z]", documentation, re.MULTILINE):
        findings.append(f"{function} has no documentation in section 3")
    if f"{function}(3)" not in shown.get("man7/libvxpadcom.7", ""):
        findings.append(f"{function} is missing in libvxpadcom(7)")

print("\n".join(findings) or f"{len(pages)} pages, {len(links)} links, {len(functions)} functions")
sys.exit(1 if findings else 0)
