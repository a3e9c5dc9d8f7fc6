#!/usr/bin/env python3
"""Draws where the time of an operation goes: chart.py TIMES.json OUT.svg

TIMES.json is the output of bench_times. A bar is the time of the platform's calls by hand, on the
bare platform, and on top of it what the library adds.
"""

import json
import sys
from xml.sax.saxutils import escape

SHOWN = [
    "sys_tpid_set", "sys_tpid_get", "pdh_admin_set", "pdh_admin_get", "pdh_code_set",
    "pdh_params_set", "pdh_params_get", "pwe_admin_get", "pwe_payload_set",
    "pwe_vlan_set: double tag", "pwe_psn_get: type 1", "pwe_rtp_get: on",
    "pwe_params_set: modify: type 2, double tag, PSN type 1, RTP",
    "pwe_params_get: type 3, double tag, PSN type 1", "pwe_atmop_xc_get: 20",
    "pwe_pm_get: generic", "pwe_om_get: ATM, clear", "ima_get", "ima_pm_get: 8 links",
    "sys_version_get", "sys_status_get", "sys_inventory_get",
]
LEFT, RIGHT, ROW, TOP, WIDTH = 400, 70, 20, 50, 500
PLATFORM, LIBRARY = "#8a9bb0", "#d9772b"


def main():
    with open(sys.argv[1]) as file:
        times = {row["run_name"]: row["cpu_time"] for row in json.load(file)["benchmarks"]
                 if row["aggregate_name"] == "median"}
    scale = WIDTH / max(times["library/" + name] for name in SHOWN)
    height = TOP + ROW * len(SHOWN) + 10
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + RIGHT}" '
        f'height="{height}" font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<rect x="{LEFT}" y="14" width="12" height="12" fill="{PLATFORM}"/>',
        f'<text x="{LEFT + 18}" y="24">platform calls by hand, bare platform</text>',
        f'<rect x="{LEFT + 260}" y="14" width="12" height="12" fill="{LIBRARY}"/>',
        f'<text x="{LEFT + 278}" y="24">added by the library</text>',
    ]
    for i, name in enumerate(SHOWN):
        y = TOP + ROW * i
        total = times["library/" + name]
        platform = min(times["bare/" + name], total)
        split = LEFT + platform * scale
        parts += [
            f'<text x="{LEFT - 8}" y="{y + 12}" text-anchor="end">{escape(name)}</text>',
            f'<rect x="{LEFT}" y="{y + 2}" width="{split - LEFT:.1f}" height="13" '
            f'fill="{PLATFORM}"/>',
            f'<rect x="{split:.1f}" y="{y + 2}" width="{(total - platform) * scale:.1f}" '
            f'height="13" fill="{LIBRARY}"/>',
            f'<text x="{LEFT + total * scale + 6:.1f}" y="{y + 12}">{total:.1f} ns</text>',
        ]
    parts.append("</svg>\n")
    with open(sys.argv[2], "w") as file:
        file.write("\n".join(parts))


if __name__ == "__main__":
    main()
