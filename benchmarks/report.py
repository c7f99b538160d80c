"""The output of bench.py: tables in Markdown, a picture, and both in docs/performance.md."""

import math
import os

KINDS = ["vlan", "host", "mpls", "ecmp", "vrf"]
PEERS = {"redis-list": "Redis, list", "redis-table": "Redis, state table",
         "grpc-1": "gRPC stream, one to a message", "grpc-64": "gRPC stream, 64 to a message"}
WORK = {"store": "", "carry": ", carry only"}
BEGIN = "<!-- begin of what ./bench --document writes -->"
END = "<!-- end of what ./bench --document writes -->"


class Figures:
    """The measured figures by name."""

    def __init__(self, figures):
        self._figures = figures

    def __contains__(self, name):
        return name in self._figures

    def names(self):
        return self._figures

    def median(self, name):
        return self._figures[name]["median"]

    def ratio(self, name, to, unit):
        return self.median(f"{name}/{unit}") / self.median(f"{to}/{unit}")

    def spread(self, name, digits=0):
        """The median, with the minimum and the maximum."""
        figure = self._figures[name]
        return (f"{figure['median']:,.{digits}f} "
                f"({figure['least']:,.{digits}f} to {figure['greatest']:,.{digits}f})")

    def operations(self):
        """The result operations."""
        return [name.split("/")[1] for name in self._figures
                if name.startswith("result/") and name.endswith("/library/instructions")]

    def reinstalled(self):
        return sorted(int(name.split("/")[1]) for name in self._figures
                      if name.startswith("reinstall/") and name.endswith("/library/ns"))

    def windows(self):
        return sorted(int(name.split("/")[1]) for name in self._figures
                      if name.startswith("socket/") and name.endswith("/library/ns")
                      and name.split("/")[1].isdigit())


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + " --- |" * len(header)]
    lines += ["| " + " | ".join(map(str, row)) + " |" for row in rows]
    return "\n".join(lines)


def cost_rows(figures, group, names):
    for name in names:
        case = f"{group}/{name}"
        library, floor = f"{case}/library", f"{case}/floor"
        yield [name, f"{figures.median(library + '/instructions'):.0f}",
               f"{figures.median(floor + '/instructions'):.0f}",
               f"{figures.ratio(library, floor, 'instructions'):.2f}",
               figures.spread(library + "/ns"), figures.spread(floor + "/ns"),
               f"{figures.median(library + '/allocations'):.0f}",
               f"{figures.median(floor + '/allocations'):.0f}"]


COST_HEADER = ["", "instructions", "floor", "ratio", "ns", "floor", "allocations", "floor"]


def traced_rows(figures):
    for kind in KINDS:
        case = f"traced/{kind}/library"
        yield [kind, f"{figures.median(case + '/instructions'):.0f}",
               figures.spread(case + "/ns"), f"{figures.median(case + '/allocations'):.0f}"]


def rendering_rows(figures):
    for kind in KINDS:
        full, short = f"render/{kind}/library", f"render-short/{kind}/library"
        debug = f"render/{kind}/short-debug-string"
        yield [kind, figures.spread(full + "/ns"), figures.spread(debug + "/ns"),
               f"{figures.ratio(full, debug, 'ns'):.2f}",
               f"{figures.ratio(full, debug, 'instructions'):.2f}",
               f"{figures.median(debug + '/allocations'):.0f}", figures.spread(short + "/ns"),
               f"{figures.median(short + '/allocations'):.0f}"]


def reinstall_rows(figures):
    least = figures.reinstalled()[0]
    for objects in figures.reinstalled():
        case = f"reinstall/{objects}"
        yield [f"{objects:,}", figures.spread(case + "/library/ns"),
               f"{figures.ratio(case + '/library', f'reinstall/{least}/library', 'ns'):.2f}",
               figures.spread(case + "/floor/ns", 1)]


def carriers(figures):
    """Each transport of requests and results, with its figure."""
    yield "raw frames, carry only", "socket/frames"
    yield "raw frames, the floor", "socket/floor"
    yield "zuskux: HAL client and server", "socket/client"
    yield "zuskux: library, HAL client and server", "socket/library"
    for work, suffix in WORK.items():
        for peer, name in PEERS.items():
            if f"peer/{peer}/{work}/ns" in figures:
                yield name + suffix, f"peer/{peer}/{work}"


def carrier_rows(figures):
    for name, case in carriers(figures):
        yield [name, figures.spread(case + "/ns"), f"{1e9 / figures.median(case + '/ns'):,.0f}",
               f"{figures.ratio(case, 'socket/client', 'ns'):.2f}"]


def windows(figures):
    """From one request at a time to as many as the socket client keeps in flight."""
    for window in figures.windows():
        yield window, f"socket/{window}"
    yield 4096, "socket"


def window_rows(figures):
    for window, case in windows(figures):
        yield [f"{window:,}", figures.spread(case + "/client/ns"),
               figures.spread(case + "/library/ns"), figures.spread(case + "/floor/ns"),
               f"{figures.ratio(case + '/floor', case + '/client', 'ns'):.2f}",
               figures.spread(case + "/frames/ns"),
               f"{figures.ratio(case + '/frames', case + '/client', 'ns'):.2f}"]


def round_trip_rows(figures):
    for side in ("server", "client"):
        case = f"round-trip/{side}"
        yield [side, f"{figures.median(case + '/instructions'):,.0f}",
               f"{figures.median(case + '/allocations'):.2f}"]


def large_rows(figures):
    yield ["manager, embedded HAL: from a loaded site to all installed, ns per object",
           figures.spread("large/install-ns")]
    yield ["site file: reading, ns per object", figures.spread("large/read-ns")]
    yield ["one changed object, from the change to its result, us",
           figures.spread("large/change-us", 1)]


def target_rows(figures):
    def ratios(group, names, to, unit):
        return [(figures.ratio(f"{group}/{name}/library", f"{group}/{name}/{to}", unit), name)
                for name in names]

    def greatest(what, target, pairs):
        value, name = max(pairs)
        missed = ", ".join(f"{each} {ratio:.2f}" for ratio, each in pairs if ratio > target)
        return [what, f"at most {target:.2f}", f"{value:.2f} ({name})",
                f"missed: {missed}" if missed else "reached"]

    def at_least(what, target, value):
        return [what, f"at least {target:g}", f"{value:.2f}",
                "reached" if value >= target else "missed"]

    yield greatest("request: instructions, relative to the floor", 1.10,
                   ratios("request", KINDS, "floor", "instructions"))
    yield greatest("full rendering: instructions, relative to the floor", 1.30,
                   ratios("render", KINDS, "floor", "instructions"))
    yield greatest("full rendering: time, relative to `ShortDebugString`", 0.20,
                   ratios("render", KINDS, "short-debug-string", "ns"))
    yield greatest("result: instructions, relative to the floor", 1.15,
                   ratios("result", figures.operations(), "floor", "instructions"))
    sizes = figures.reinstalled()
    yield greatest(f"reinstall: time per object, relative to {sizes[0]:,}", 1.20,
                   [(figures.ratio(f"reinstall/{sizes[-1]}/library",
                                   f"reinstall/{sizes[0]}/library", "ns"), f"{sizes[-1]:,}")])
    def at_most(what, target, value):
        return [what, f"at most {target:,}", f"{value:,.0f}",
                "reached" if value <= target else "missed"]

    for window, case in windows(figures):
        yield at_least(f"request to result: rate, relative to the floor, window of {window:,}", 0.8,
                       figures.ratio(case + "/floor", case + "/client", "ns"))
    for peer, target in (("grpc-64", 1), ("redis-list", 8), ("grpc-1", 25)):
        if f"peer/{peer}/store/ns" in figures:
            yield at_least(f"request to result: rate, relative to {PEERS[peer]}, doing the same work",
                           target, figures.ratio(f"peer/{peer}/store", "socket/client", "ns"))
    yield at_most("`zuskux-hal`: instructions for a request", 1_400,
                  figures.median("round-trip/server/instructions"))
    yield at_most("HAL client: instructions for a request and its result", 1_200,
                  figures.median("round-trip/client/instructions"))
    yield at_most("one change among 1,000,000 objects, us", 100,
                  figures.median("large/change-us"))
    yield at_most("manager: bytes per object above its records", 150,
                  figures.median("memory/held/bytes") - figures.median("memory/records/bytes"))


def tables(result):
    """All measurements, in Markdown."""
    figures = Figures(result["figures"])
    machine = result["machine"]
    parts = [
        f"Measured {machine['date']} in {result['rounds']} rounds on {machine['cores']} cores of "
        f"{machine['processor']}, {machine['memory']}, load {machine['load']:.1f} at the start. "
        + ", ".join(f"{name} {version}" for name, version in machine["versions"].items() if version)
        + "."]
    if result["quick"]:
        parts.append("**A quick run: the figures mean nothing.**")
    for title, header, rows in [
            ("Targets", ["what", "target", "reached", ""], target_rows(figures)),
            ("Request, tracing off", COST_HEADER, cost_rows(figures, "request", KINDS)),
            ("Request, traced, output discarded", ["", "instructions", "ns", "allocations"],
             traced_rows(figures)),
            ("Full rendering", COST_HEADER, cost_rows(figures, "render", KINDS)),
            ("Rendering, compared with `ShortDebugString` of the same message",
             ["", "full, ns", "`ShortDebugString`, ns", "time", "instructions",
              "its allocations", "short, ns", "allocations"], rendering_rows(figures)),
            ("Result", COST_HEADER, cost_rows(figures, "result", figures.operations())),
            ("Reinstall", ["objects", "ns per object", "relative to the first", "floor, ns"],
             reinstall_rows(figures)),
            ("Request to result through another process",
             ["", "ns per request", "requests per second", "relative to zuskux"],
             carrier_rows(figures)),
            ("Request to result, by window",
             ["window", "HAL client and server, ns per request", "with the library, ns",
              "floor, ns", "client and server, rate relative to the floor", "carry only, ns",
              "rate relative to it"],
             window_rows(figures)),
            ("A request and its result on either side", ["", "instructions", "allocations"],
             round_trip_rows(figures)),
            ("A site of 1,000,000 objects", ["", ""], large_rows(figures)),
            ("Memory for 1,000,000 objects", ["", "bytes per object"],
             [[name, figures.spread(f"memory/{case}/bytes")]
              for name, case in [("manager, at its peak", "peak"), ("manager, afterwards", "held"),
                                 ("of which the objects' records", "records"),
                                 ("the site, which the manager frees", "site"),
                                 ("HAL server, at its peak", "server")]])]:
        parts.append(f"### {title}\n\n{table(header, rows)}")
    return "\n\n".join(parts) + "\n"


def bars(title, values, text, scale, y):
    """Horizontal bars with their names; the lines of SVG and the height below."""
    lines = [f'<text class="title" x="10" y="{y + 14}">{title}</text>']
    y += 26
    for name, value in values:
        width = max(1.0, 400 * scale(value))
        lines += [f'<text x="230" y="{y + 12}" text-anchor="end">{name}</text>',
                  f'<rect x="240" y="{y + 1}" width="{width:.1f}" height="13"/>',
                  f'<text x="{246 + width:.1f}" y="{y + 12}">{text(value)}</text>']
        y += 19
    return lines, y + 14


def picture(measured):
    """The costs beside their floors, and the throughput of each transport, as SVG."""
    figures = Figures(measured)
    costs = []
    for group, names in [("request", KINDS), ("render", KINDS), ("result", figures.operations())]:
        costs += [(f"{group} {name}", figures.ratio(f"{group}/{name}/library",
                                                    f"{group}/{name}/floor", "instructions"))
                  for name in names]
    rates = [(name, 1e9 / figures.median(case + "/ns")) for name, case in carriers(figures)]
    highest = math.log10(max(rate for _, rate in rates))
    upper, y = bars("Instructions, as a multiple of the floor", costs,
                    lambda ratio: f"{ratio:.2f}", lambda ratio: ratio / 2, 10)
    lower, height = bars("Requests per second, each with its result, through another process; "
                         "logarithmic, from 1,000", rates, lambda rate: f"{rate:,.0f}",
                         lambda rate: (math.log10(rate) - 3) / (highest - 3), y)
    style = ("text{font:12px sans-serif;fill:#222} .title{font-weight:bold} rect{fill:#4878a8} "
             "line{stroke:#c33;stroke-dasharray:3 3}")
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 760 {height}" width="760" '
        f'height="{height}">', f"<style>{style}</style>",
        '<rect width="100%" height="100%" style="fill:#fff"/>', *upper,
        f'<line x1="440" y1="30" x2="440" y2="{y - 10}"/>', *lower, "</svg>"]) + "\n"


SCALE_PANELS = [
    ("Time per object, ns", [("elapsed", "elapsed", "#333"), ("manager", "manager's processor", "#4878a8"),
                             ("server", "server's processor", "#c33")]),
    ("Bytes per object", [("manager-bytes", "manager", "#4878a8"),
                          ("manager-peak", "manager, at its peak", "#88b8e8"),
                          ("server-bytes", "server, at its peak", "#c33")])]


def scale_panel(title, series, results, left):
    """A plot over the number of objects, which is logarithmic; the lines of SVG."""
    width, height, top = 280, 200, 40
    sizes = sorted(results)
    highest = max(results[size][name] for size in sizes for name, _, _ in series)
    # One, two or five times a power of ten, for four steps or more.
    power = 10 ** math.floor(math.log10(highest / 4))
    step = max(factor * power for factor in (1, 2, 5) if factor * power <= highest / 4)
    highest = math.ceil(highest / step) * step
    first, last = math.log10(sizes[0]), math.log10(sizes[-1])

    def point(size, value):
        return (left + width * (math.log10(size) - first) / max(last - first, 1),
                top + height * (1 - value / highest))

    lines = [f'<text class="title" x="{left}" y="20">{title}</text>',
             f'<path d="M{left},{top} v{height} h{width}" style="fill:none;stroke:#222"/>']
    for size in sizes:
        x, y = point(size, 0)
        lines.append(f'<text x="{x:.0f}" y="{y + 18:.0f}" text-anchor="middle">{size:,}</text>')
    for value in range(0, highest + 1, step):
        _, y = point(sizes[0], value)
        lines.append(f'<text x="{left - 6}" y="{y + 4:.0f}" text-anchor="end">{value:,.0f}</text>')
    for place, (name, label, colour) in enumerate(series):
        points = " ".join(f"{x:.1f},{y:.1f}" for x, y in
                          (point(size, results[size][name]) for size in sizes))
        y = top + height + 42 + 18 * place
        lines += [f'<polyline points="{points}" style="fill:none;stroke:{colour};stroke-width:2"/>',
                  f'<rect x="{left}" y="{y - 9}" width="18" height="4" style="fill:{colour}"/>',
                  f'<text x="{left + 26}" y="{y}">{label}</text>']
    return lines


def scale_picture(results):
    """Time and bytes per object over the number of objects, as SVG. `results` has the figures of
    each size."""
    panels = [line for place, (title, series) in enumerate(SCALE_PANELS)
              for line in scale_panel(title, series, results, 60 + 380 * place)]
    return "\n".join([
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 760 330" width="760" height="330">',
        "<style>text{font:12px sans-serif;fill:#222} .title{font-weight:bold}</style>",
        '<rect width="100%" height="100%" style="fill:#fff"/>', *panels, "</svg>"]) + "\n"


def document(root, text, drawn):
    """Writes both into the documentation."""
    with open(os.path.join(root, "docs/pictures/performance.svg"), "w", encoding="utf-8") as file:
        file.write(drawn)
    write_between(os.path.join(root, "docs/performance.md"), BEGIN, END, text)


def write_between(path, begin, end, text):
    """Replaces the text between two lines of a file."""
    with open(path, encoding="utf-8") as file:
        before, rest = file.read().split(begin)
    _, after = rest.split(end)
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"{before}{begin}\n\n{text}\n{end}{after}")
