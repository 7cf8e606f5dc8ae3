"""Inputs of the fuzz targets made from the scenarios. Each mirrors what its target reads, byte by byte; what a target
has no bytes for is left out."""
import pathlib
import re
import struct

import yaml


def scenario_texts():
    return {path.stem: path.read_bytes() for path in pathlib.Path("Scenarios").glob("*.yaml")}


def scenarios():
    return {name: yaml.load(text, yaml.BaseLoader) for name, text in scenario_texts().items()}


def steps_of(scenario):
    for step in scenario.get("steps") or []:
        for kind, what in step.items():
            yield kind, what


def number(text):
    """0 for what is no number: a range or a list, which no target has."""
    return int(text, 0) if isinstance(text, str) and re.fullmatch(r"0x[0-9a-fA-F]+|\d+", text) else 0


def microseconds(text):
    units = {"h": 3600_000_000, "m": 60_000_000, "s": 1_000_000, "ms": 1000, "us": 1}
    return sum(int(count) * units[unit] for count, unit in re.findall(r"(\d+)(h|ms|us|m|s)", text))


def names_in(source):
    """The first column of a table of the simulator."""
    return re.findall(r'^    \{"([a-z-]+)", ', pathlib.Path(source).read_text(), re.M)


def place_of(words, word):
    return words.index(word) if word in words else 0


# ---- Machine checks

def machine_check_steps():
    """Machine checks, each with its SMI."""
    seeds = {}
    for name, scenario in scenarios().items():
        steps = b""
        for kind, what in steps_of(scenario):
            if kind != "machine-check":
                continue
            given, registers = 0, b""
            for bit, key in enumerate(("addr", "misc0", "misc1", "config", "ipid", "synd", "destat", "deaddr")):
                if key in what:
                    given |= 1 << bit
                    registers += struct.pack("<Q", number(what[key]))
            steps += struct.pack("<BBBQB", 0, number(what.get("processor")), number(what.get("bank")),
                                 number(what.get("status")), given) + registers + b"\x01"
        if steps:
            seeds[name] = bytes([1, 0, 20]) + steps
    return seeds


# ---- PCI Express

KINDS_ON_ROOT = ["root-port", "", "", "integrated-endpoint", "event-collector"]
KINDS_BELOW_PCIE = ["endpoint", "switch-upstream-port", "legacy-endpoint", "pcie-to-pci-bridge", "",
                    "switch-downstream-port", "pci"]
KINDS_BELOW_SWITCH = ["switch-downstream-port", "", "", "endpoint"]
KINDS_BELOW_PCI = ["pci", "", "pci-bridge"]
BRIDGES = ["root-port", "switch-upstream-port", "switch-downstream-port", "pcie-to-pci-bridge", "pci-bridge"]
CLASSES = [0x030000, 0x020000, 0x010802, 0x050210, 0x060400, 0x060000, 0xFF0000, 0x0C0330]
DEFAULT_NAMES = ["port0", "nic0", "nic1", "port1", "switch", "bay0", "nvme0", "bay1", "nvme1", "port2", "port3",
                 "accelerator"]
SLOT_ACTS = ["remove", "surprise-remove", "insert", "power-off", "power-on"]
ROOT_COMPLEXES = 2
DEEPEST = 4


def dpc_byte(dpc):
    trigger = place_of(["off", "fatal", "non-fatal"], dpc.get("trigger", "non-fatal"))
    flags = ((dpc.get("rp-extensions") == "false") | (dpc.get("err-cor") == "false") << 1
             | (dpc.get("interrupt") == "true") << 2)
    log_size = number(dpc.get("log-size", "4"))
    fits = [byte for byte in range(256) if byte & 7 == flags and (byte >> 3) % 10 == log_size]
    return next((byte for byte in fits if (2 + (byte >> 6)) % 3 == trigger), fits[0])


def function_bytes(function):
    bits, more = 0, b""
    if function.get("version") == "1":
        bits |= 7
    if function.get("aer") == "false":
        bits |= 0x300
    if "slot" in function:
        slot = function["slot"] or {}
        bits |= 0x400
        more += bytes([(slot.get("hot-plug") == "false") | (slot.get("surprise") == "true") << 1
                       | (slot.get("power-controller") == "true") << 2
                       | (0x18 if slot.get("occupied") == "false" else 0) | ("bay" in slot) << 5])
    if "dpc" in function:
        bits |= 0x800
        more += bytes([dpc_byte(function["dpc"] or {})])
    if number(function.get("class")) in CLASSES and "class" in function:
        bits |= 0x1000
        more += bytes([CLASSES.index(number(function["class"]))])
    return struct.pack("<H", bits) + more


def below_bytes(function, kind, depth, names):
    if kind not in BRIDGES or depth == DEEPEST:
        return b""
    below = (function.get("below") or [])[:3]
    made = bytes([1, len(below)])  # no spare buses
    kinds = (KINDS_BELOW_SWITCH if kind == "switch-upstream-port" else
             KINDS_BELOW_PCI if kind in ("pcie-to-pci-bridge", "pci-bridge") else KINDS_BELOW_PCIE)
    for one in below:
        kind_of_one = one.get("kind", "endpoint")
        names.append(one.get("name"))
        made += bytes([place_of(kinds, kind_of_one)]) + function_bytes(one)
        made += bytes([1 | number(one["function"]) - 1 << 2 if number(one.get("function")) != 0 else 0])
        made += below_bytes(one, kind_of_one, depth + 1, names)
    return made


def hierarchy_bytes(scenario, names):
    ports = ((scenario.get("machine") or {}).get("pcie") or {}).get("ports")
    if not ports:
        names += DEFAULT_NAMES
        return b"\x10"
    made, named = b"", {}
    for port in ports[:5]:
        root_complex = number(port.get("root-complex")) % ROOT_COMPLEXES
        kind = port.get("kind", "root-port")
        here = named.setdefault(root_complex, [])
        here.append(port.get("name"))
        made += bytes([root_complex, place_of(KINDS_ON_ROOT, kind)]) + function_bytes(port)
        made += below_bytes(port, kind, 1, here)
    for root_complex in sorted(named):
        names += named[root_complex]
    return bytes([0, len(ports[:5]) - 1]) + made


def pcie_step(kind, what, names, errors):
    """Bytes of one step; None for one that the target does not know."""
    def at(key="at"):
        return bytes([place_of(names, what.get(key))])

    if kind == "pcie-error":
        listed = what["error"] if isinstance(what["error"], list) else [what["error"]]
        return [b"\x00" + at() + bytes([place_of(errors, error), 2 if what.get("advisory") == "true" else 0])
                for error in listed]
    if kind == "pcie-config" and "write" in what and "offset" in what:
        width = {"8": 0, "16": 1}.get(what.get("width"), 2)
        return [b"\x03" + at() + struct.pack("<BHI", width, number(what["offset"]), number(what["write"]))]
    if kind == "pcie-slot":
        return [b"\x05" + at() + bytes([place_of(SLOT_ACTS, what["act"])])]
    if kind == "pcie-link" and "state" in what:
        return [b"\x05" + at() + (b"\x06" if what["state"] == "up" else b"\x05")]
    if kind == "pcie-death" and "at" in what:
        return [b"\x06" + at() + (b"\x00" if "revive" in what else bytes([2, min(number(what.get("reads")), 255)]))]
    if kind == "os-dsm":
        return [b"\x07" + at("port")]
    if kind == "os-edr":
        cleared = place_of(["nothing", "trigger", "everything"], (what or {}).get("clears", "everything"))
        return [bytes([8, cleared])]
    if kind == "os-ost":
        outcomes = [0x80, 0x81, 0, 0xFF]
        return [b"\x09" + at("port") + bytes([place_of(outcomes, number(what.get("status", "0x80")))])]
    if kind == "wait":
        return [b"\x0B" + struct.pack("<I", min(microseconds(what), 0xFFFFFF))]
    if kind == "smi":
        return [b"\x0F"]
    return None


def pcie_hierarchies():
    errors = names_in("Simulator/Machine/PcieError.cpp")
    seeds = {}
    for name, scenario in scenarios().items():
        if not name.startswith(("pcie-", "dpc-", "storm-pcie")):
            continue
        names = []
        seed = b"\x00" + hierarchy_bytes(scenario, names)
        for kind, what in steps_of(scenario):
            for one in pcie_step(kind, what, names, errors) or []:
                seed += b"\x00" + one
        seeds[name] = seed
    return seeds


# ---- CXL

OPCODES = [0x100, 0x101, 0x102, 0x103]


def any_word(value):
    return b"\x03" + struct.pack("<I", value)


def patch_bytes(patches, first, width):
    made = bytes([len(patches[:4])])
    for patch in patches[:4]:
        made += struct.pack(width, max(0, number(patch["offset"]) - first) // 4) + any_word(number(patch["value"]))
    return made


def cxl_bytes(cxl):
    bits = 0 if cxl.get("memory-device") == "true" else 3
    bits |= 0xC if cxl.get("ras") == "false" else 0
    bits |= 0x30 if cxl.get("secondary-mailbox") == "false" else 0
    bits |= (number(cxl.get("payload", "2048")).bit_length() - 9) % 6 << 6
    bits |= (place_of(["none", "os", "firmware"], cxl.get("event-interrupts", "firmware")) + 1) % 3 << 9
    more = b""
    if "event-log-capacity" in cxl:
        bits |= 0x800
        more += bytes([min(number(cxl["event-log-capacity"]), 256) - 1])
    if "locator-length" in cxl:
        bits |= 0x2000
        more += struct.pack("<H", number(cxl["locator-length"]))
    if "locator" in cxl:
        bits |= 0x4000
        more += bytes([len(cxl["locator"][:4])])
        for entry in cxl["locator"][:4]:
            more += bytes([number(entry.get("bar")) | number(entry.get("block")) << 3 | 0x80])
            more += struct.pack("<Q", number(entry.get("offset")))
    if "component-registers" in cxl or "device-registers" in cxl:
        bits |= 0x8000
        more += patch_bytes(cxl.get("component-registers", []), 0x1000, "<B")
        more += patch_bytes(cxl.get("device-registers", []), 0, "<H")
    return struct.pack("<H", bits) + more


def cxl_port_bytes(port, functions):
    choice = number(port.get("root-complex")) % ROOT_COMPLEXES
    choice |= 0 if port.get("cxl-capable") == "true" else 0xC0
    if "cxl" in port and port["cxl"].get("restricted") == "true":
        functions.append(port.get("name"))
        return bytes([choice | 0x30]) + b"\x00\x00" + function_bytes(port) + cxl_bytes(port["cxl"])
    device = (port.get("below") or [{}])[0]
    if "cxl" not in device:
        return b""
    functions.append(device.get("name"))
    return bytes([choice]) + function_bytes(port) + function_bytes(device) + cxl_bytes(device["cxl"])


def cxl_step(kind, what, functions, errors, events):
    def at():
        return bytes([place_of(functions, what.get("at"))])

    if kind == "cxl-error":
        correctable = "correctable" in what
        name = what["correctable" if correctable else "uncorrectable"]
        header = [number(word) for word in what.get("header", [])]
        index = len(errors) - 1 - errors[::-1].index(name) if correctable and name in errors else place_of(errors, name)
        return [b"\x00" + at() + bytes([index]) + struct.pack("<16I", *(header + [0] * 16)[:16])]
    if kind == "cxl-event":
        severity = place_of(["informational", "warning", "failure", "fatal"], what["severity"])
        record = bytes(16) + bytes([128, severity | number(what.get("flags"))]) + bytes(110)
        data = bytes.fromhex(what.get("data") or "")
        record = record[:48] + (data + bytes(80))[:80]
        count = min(number(what.get("count", "1")), 256)
        choice = place_of(events, what.get("kind")) | (0x80 if count > 1 else 0)
        return [b"\x02" + at() + bytes([choice]) + (bytes([count - 1]) if count > 1 else b"") + record]
    if kind == "cxl-mailbox":
        made = []
        primary = 7 if what.get("mailbox") == "primary" else 0
        if "occupied" in what:
            made.append(b"\x04" + at() + bytes([primary]) + struct.pack("<I", microseconds(what["occupied"])))
        if "hangs" in what:
            made.append(b"\x04" + at() + bytes([primary | 1 << 5]))
        if "dies" in what:
            made.append(b"\x04" + at() + bytes([primary | place_of(OPCODES, number(what["dies"])) << 3 | 2 << 5]))
        for refusal in what.get("refuse", []):
            opcode = place_of(OPCODES, number(refusal["opcode"]))
            times = min(number(refusal.get("times", "1")), 8) - 1 | (number(refusal.get("skip")) & 3) << 3
            made.append(b"\x04" + at() + bytes([primary | opcode << 3 | 3 << 5]) +
                        (bytes([times | 1 << 5]) + struct.pack("<I", number(refusal["told-length"]))
                         if "told-length" in refusal else bytes([times, number(refusal.get("code", "5"))])))
        return made
    if kind == "cxl-osc":
        return [b"\x08" + any_word(number(what["support"])) + any_word(number(what["control"]))]
    if kind == "smi":
        return [b"\x0F"]
    return None


def cxl_registers():
    source = pathlib.Path("Simulator/Machine/CxlFabric.cpp").read_text()
    errors = re.findall(r'^    \{"([a-z-]+)", (?:true|false), ', source, re.M)
    events = re.findall(r'^    \{"([a-z-]+)", \{0x', source, re.M)
    seeds = {}
    for name, scenario in scenarios().items():
        ports = ((scenario.get("machine") or {}).get("pcie") or {}).get("ports") or []
        functions = []
        made = [one for one in (cxl_port_bytes(port, functions) for port in ports) if one][:4]
        if not made:
            continue
        seed = bytes([0, len(made) - 1]) + b"".join(made)
        for kind, what in steps_of(scenario):
            for one in cxl_step(kind, what, functions, errors, events) or []:
                seed += b"\x00" + one
        seeds[name] = seed
    return seeds


SEEDS = {
    "ScenarioFile": scenario_texts,
    "MachineChecks": machine_check_steps,
    "PcieHierarchy": pcie_hierarchies,
    "CxlRegisters": cxl_registers,
}
