#!/usr/bin/env python3
"""Checks who includes whom in the library: no header above one's own floor, no cycle between
headers, operating-system headers in core/src/system/ only.

    check_layers.py [ROOT]     ROOT holds core/src and include/ruvell (default: this repository)
"""
import re
import sys
from pathlib import Path

# The floors, lowest first. A module is a file without its extension or, ending in "/", a folder.
FLOORS = [
    ("foundation", "frame hooks msg memory strpool shash hash list duration version counters"
                   " text thread_slot tag_group simd color work_queue function_ref joint_work hemi_tables number_text sample_sink"
                   " report_once texture_wrap environment_formats system/"),
    ("node model", "maths finite vec3d array paramentry metadata nodeentry declare nodes node_access links userdefs"
                   " shading_state universe options message_passing scene node_watch"
                   " image_geometry camera_data texture_flush cache_flags"),
    ("scene files and tracing", "dotrvs dotrvs_input dotrvs_parse dotrvs_references dotrvs_values dotrvs_blocks dotrvs_write override plugins obj"
                                " objects/ accels/ rtrace_packet sampler sampling point_rotation trace rays hit_context"),
    ("shading and lights", "shaderglobals shader_eval shader_geometry wireframe bump radiosity importance brdf brdf_mis"
                           " integrators noise mappings texture texture_files texture_system texture_queries sss sss_cloud sss_build sss_distribution sss_octree"
                           " shaders/ lights/ cameras/"),
    ("output", "aovs/ filters/ drivers/ render_session"),
    ("render control", "render buckets bucket_order stats stats_lines stats_report stats_warnings builtin scene_passes sample_tables region render_steps"),
]
FLOOR_OF = {module: floor for floor, (_, modules) in enumerate(FLOORS) for module in modules.split()}

# What may be included between <> everywhere: C++ headers, which have no extension, and these.
PORTABLE = re.compile(r"[a-z_]+|(assert|ctype|errno|fenv|float|inttypes|limits|locale|math|setjmp"
                      r"|signal|stdarg|stdbool|stddef|stdint|stdio|stdlib|string|time|wchar"
                      r"|[a-z]mmintrin|zlib)\.h|OpenImageIO/[a-z]+\.h")


def floor_of(module):
    """The floor of a path without extension under core/src, None when no floor lists it."""
    return FLOOR_OF.get(module.split("/")[0] + "/" if "/" in module else module)


def includes(file):
    """(line number, name, is it between <>) of every include of a file."""
    pattern = re.compile(r'\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
    for number, line in enumerate(file.read_text().splitlines(), 1):
        if match := pattern.match(line):
            yield number, match[1] or match[2], match[2] is not None


def find_cycle(graph):
    """A list of headers each of which includes the next, the last the first; None without one."""
    finished, path = set(), []

    def visit(name):
        if name in path:
            return path[path.index(name):] + [name]
        if name in finished:
            return None
        path.append(name)
        cycle = next(filter(None, map(visit, graph.get(name, []))), None)
        path.pop()
        finished.add(name)
        return cycle

    return next(filter(None, map(visit, graph)), None)


def problems(root):
    source, public = root / "core/src", root / "include/ruvell"
    files = sorted([*source.rglob("*.cpp"), *source.rglob("*.h"), *public.glob("*.h")])
    if not files:
        yield f"no sources below {root}"
    graph = {}  # header to the headers it includes
    for file in files:
        is_public = file.parent == public
        name = str(file.relative_to(public if is_public else source))
        floor = -1 if is_public else floor_of(name.rsplit(".", 1)[0])
        if floor is None:
            yield f"{name}: no floor lists this module; add it to FLOORS in tests/abi/check_layers.py"
            continue
        for line, target, is_system in includes(file):
            where = f"{name}:{line}"
            if is_system:
                if not PORTABLE.fullmatch(target) and not name.startswith("system/"):
                    yield f"{where}: <{target}> belongs behind core/src/system/"
                continue
            if file.suffix == ".h":
                graph.setdefault(name, []).append(target)
            if (public / target).exists():
                continue
            if not (source / target).exists():
                yield f'{where}: "{target}" is neither a public header nor a path below core/src'
                continue
            target_floor = floor_of(target.rsplit(".", 1)[0])
            if target_floor is not None and target_floor > floor:
                lower = FLOORS[floor][0] if floor >= 0 else "the public headers"
                yield f'{where}: "{target}" is above: {FLOORS[target_floor][0]} over {lower}'
    if cycle := find_cycle(graph):
        yield "headers include each other: " + " -> ".join(cycle)


def main():
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parents[2]
    found = list(problems(root))
    print("\n".join(found) if found else "every include stays on its floor or goes down")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
