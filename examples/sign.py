# sign.py: draws what is signed on the first pad within ten seconds.
import sys

import vxpadcom

layout = vxpadcom.Layout("x=2:u16le,y=4:u16le,pressure=6:u16le")  # that of virtual pads
lines = [""]
try:
    with vxpadcom.open() as pads, pads[1].receive(seconds=10) as reports:
        for report in reports:
            x, y, pressure = layout.decode(report).values()
            if pressure > 0:
                lines[-1] += f"{x},{y} "
            else:
                lines.append("")
except vxpadcom.PadError as error:
    sys.exit(str(error))
print("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 4000 2000' fill='none' stroke='black' stroke-width='20'>")
for line in lines:
    print(f"<polyline points='{line}'/>")
print("</svg>")
