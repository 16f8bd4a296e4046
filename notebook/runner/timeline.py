"""The story as a picture: an SVG timeline with a lane for each thing that a user cares about."""

import dataclasses
import xml.etree.ElementTree as ElementTree

LANES = (
    ("cable", "Cable"),
    ("wifi", "Wi-Fi"),
    ("stored_wlan", "Wi-Fi remembered"),
    ("wwan", "Mobile broadband"),
    ("stored_wwan", "Mobile remembered"),
    ("airplane", "Airplane mode"),
    ("asleep", "Asleep"),
)
LIVELY = {"in", "on", "True", "yes"}
SHOWN_AS = {"missing": "nothing yet", "True": "on", "False": "off", "no-address": "no address"}

LEFT, RIGHT, TOP = 150, 20, 120
LANE_HEIGHT, BAR_HEIGHT = 34, 20
PIXELS_PER_SECOND = 18
STEP_GAP = 4.0
"""Seconds that a step gets at least, so that its words have room."""
FONT = "DejaVu Sans, Verdana, sans-serif"
COLOURS = {"cable": "#8a5a00", "wifi": "#1f6feb", "stored_wlan": "#79a8f0", "wwan": "#1a7f37",
           "stored_wwan": "#7bc38d", "airplane": "#cf222e", "asleep": "#57606a"}


@dataclasses.dataclass(frozen=True)
class Moment:
    """The state of the machine from `time` (seconds) on."""
    time: float
    state: dict


@dataclasses.dataclass(frozen=True)
class Mark:
    """Something that happened."""
    time: float
    text: str


def spans(moments, key, end):
    """How long a lane had each of its values: (from, until, value)."""
    found = []
    for moment in moments:
        value = moment.state[key]
        if not found or found[-1][2] != value:
            if found:
                found[-1][1] = moment.time
            found.append([moment.time, end, value])
    return [tuple(span) for span in found]


def draw(moments, marks, end):
    """The picture as text."""
    width = LEFT + end * PIXELS_PER_SECOND + RIGHT
    height = TOP + LANE_HEIGHT * len(LANES) + 40
    svg = ElementTree.Element("svg", {
        "xmlns": "http://www.w3.org/2000/svg", "viewBox": f"0 0 {width:.0f} {height:.0f}",
        "width": f"{width:.0f}", "height": f"{height:.0f}", "font-family": FONT, "font-size": "12"})
    ElementTree.SubElement(svg, "title").text = "An evening with LinkvaneService"
    _rectangle(svg, 0, 0, width, height, "#ffffff")
    for row, (key, title) in enumerate(LANES):
        _lane(svg, TOP + row * LANE_HEIGHT, title, COLOURS[key], spans(moments, key, end), width)
    for mark in marks:
        _mark(svg, mark, TOP + LANE_HEIGHT * len(LANES))
    _axis(svg, TOP + LANE_HEIGHT * len(LANES), end)
    ElementTree.indent(svg)
    return ElementTree.tostring(svg, encoding="unicode") + "\n"


def _x(time):
    return LEFT + time * PIXELS_PER_SECOND


def _lane(svg, top, title, colour, lane_spans, width):
    _text(svg, LEFT - 10, top + BAR_HEIGHT - 5, title, anchor="end", fill="#1f2328")
    _rectangle(svg, LEFT, top + BAR_HEIGHT / 2, width - LEFT - RIGHT, 1, "#d0d7de")
    for begin, until, value in lane_spans:
        lively = value in LIVELY
        length = (until - begin) * PIXELS_PER_SECOND
        box = _rectangle(svg, _x(begin), top, length, BAR_HEIGHT, colour if lively else "#f6f8fa")
        box.set("stroke", colour)
        box.set("stroke-width", "0.6")
        ElementTree.SubElement(box, "title").text = f"{title}: {SHOWN_AS.get(value, value)}"
        words = SHOWN_AS.get(value, value)
        if length > 6 * len(words) + 6:
            _text(svg, _x(begin) + 4, top + BAR_HEIGHT - 6, words, fill="#ffffff" if lively else "#57606a",
                  size=10)


def _mark(svg, mark, bottom):
    ElementTree.SubElement(svg, "line", {
        "x1": f"{_x(mark.time):.1f}", "x2": f"{_x(mark.time):.1f}", "y1": f"{TOP - 6}", "y2": f"{bottom}",
        "stroke": "#1f2328", "stroke-width": "0.7", "stroke-dasharray": "2 3"})
    text = _text(svg, _x(mark.time), TOP - 10, mark.text, fill="#1f2328", size=11)
    text.set("transform", f"rotate(-35 {_x(mark.time):.1f} {TOP - 10})")


def _axis(svg, top, end):
    for second in range(0, int(end) + 1, 10):
        _text(svg, _x(second), top + 22, f"{second} s", anchor="middle", fill="#57606a", size=10)


def _rectangle(svg, x, y, width, height, fill):
    return ElementTree.SubElement(svg, "rect", {
        "x": f"{x:.1f}", "y": f"{y:.1f}", "width": f"{width:.1f}", "height": f"{height:.1f}", "fill": fill})


def _text(svg, x, y, words, fill, anchor="start", size=12):
    element = ElementTree.SubElement(svg, "text", {
        "x": f"{x:.1f}", "y": f"{y:.1f}", "fill": fill, "text-anchor": anchor, "font-size": str(size)})
    element.text = words
    return element
