"""Takes stills and motion photos apart by their published layouts and the trailer's document. Shares no code with the
library, and reads strictly: what does not add up raises Damaged.

    photo = read_photo(data)         JPEG or HEIC: image, XMP, trailer, video, debug info
    photo.motion_photo_faults()      what in trailer, XMP and video does not agree, as texts
"""

import struct
from dataclasses import dataclass, field
from xml.etree import ElementTree

XMP_ID = b"http://ns.adobe.com/xap/1.0/\0"
RDF = "{http://www.w3.org/1999/02/22-rdf-syntax-ns#}"
CAMERA = "{http://ns.google.com/photos/1.0/camera/}"
CONTAINER = "{http://ns.google.com/photos/1.0/container/}"
ITEM = "{http://ns.google.com/photos/1.0/container/item/}"
VIDEO, VIDEO_VERSION = 2608, 2609
MAX_POINTER_RECORD = 125_000


class Damaged(Exception):
    pass


def require(condition, text):
    if not condition:
        raise Damaged(text)


def unpack(layout, data, at):
    size = struct.calcsize(layout)
    require(0 <= at and at + size <= len(data), f"{size} bytes at {at} of {len(data)}")
    return struct.unpack_from(layout, data, at)


def span(data, start, size):
    require(0 <= start and 0 <= size and start + size <= len(data), f"{size} bytes at {start} of {len(data)}")
    return data[start : start + size]


# The trailer. ---------------------------------------------------------------------------------------------------------


@dataclass
class Record:
    kind: int
    name: bytes
    data: bytes
    position: int  # of the data
    sub_info: bytes = None


@dataclass
class Trailer:
    start: int  # of the farthest record
    tail: int
    records: list  # in directory order


def read_trailer(data):
    """The trailer at the end of the bytes, None without its marks."""
    if data[-4:] != b"QRTT" or len(data) < 20:
        return None
    (size,) = unpack("<I", data, len(data) - 8)
    tail = len(data) - 8 - size
    if tail < 0 or data[tail : tail + 4] != b"QRTH":
        return None
    (count,) = unpack("<I", data, tail + 8)
    require(12 + 12 * count <= size, f"{count} records in a tail of {size}")
    trailer = Trailer(tail, tail, [])
    for entry in range(tail + 12, tail + 12 + 12 * count, 12):
        header, offset, payload = unpack("<III", data, entry)
        start = tail - offset
        require(0 < start and payload <= offset, "record outside the file")
        record = span(data, start, payload)
        own_header, name_size = unpack("<II", record, 0)
        require(own_header >> 15 == header >> 15, "record and directory disagree")
        sub_size = unpack("<I", record, 8)[0] if header & 0x8000 else None
        at = 8 if sub_size is None else 12
        name = span(record, at, name_size)
        sub_info = None if sub_size is None else span(record, at + name_size, sub_size)
        at += name_size + (sub_size or 0)
        kind = struct.unpack("<i", struct.pack("<I", header))[0] >> 16
        trailer.records.append(Record(kind, name, record[at:], start + at, sub_info))
        trailer.start = min(trailer.start, start)
    return trailer


# JPEG. ----------------------------------------------------------------------------------------------------------------


@dataclass
class Segment:
    code: int  # 0xE1 for APP1; the start of scan is the last, with all the rest as its payload
    position: int
    payload: bytes

    def is_xmp(self):
        return self.code == 0xE1 and self.payload.startswith(XMP_ID)

    def is_blank_room(self):
        return self.code == 0xE1 and not self.payload.strip(b" ")

    def is_debug_info(self):
        return self.code == 0xE4


def jpeg_segments(data):
    """Camera debug info stands with its marker and length the other way round."""
    require(data[:2] == b"\xff\xd8", "no start of image")
    segments, at = [], 2
    while True:
        while data[at : at + 2] == b"\xff\xff":
            at += 1
        mark, code = unpack(">BB", data, at)
        reversed_order = (mark, code) == (0xE4, 0xFF)
        if reversed_order:
            mark, code = code, mark
        require(mark == 0xFF, f"no marker at {at}")
        if code in (0xDA, 0xD9):
            segments.append(Segment(code, at, data[at + 2 :]))
            return segments
        (length,) = unpack("<H" if reversed_order else ">H", data, at + 2)
        require(length >= 2, f"segment of {length} at {at}")
        segments.append(Segment(code, at, span(data, at + 4, length - 2)))
        at += 2 + length


# HEIC. ----------------------------------------------------------------------------------------------------------------


@dataclass
class Box:
    kind: bytes
    start: int
    content: int
    end: int


def boxes(data, start, end):
    found = []
    while start < end:
        size, kind = unpack(">I4s", data, start)
        content = start + 8
        if size == 1:
            (size,) = unpack(">Q", data, content)
            content += 8
        box = Box(kind, start, content, start + size if size else end)
        require(content <= box.end <= end, f"box {kind} at {start} ends at {box.end} of {end}")
        found.append(box)
        start = box.end
    return found


@dataclass
class Item:
    kind: bytes
    content_type: bytes
    data: bytes
    ranges: list = field(compare=False)
    flags: int = 0
    properties: tuple = ()  # (essential, box)
    references: tuple = ()  # (type, to-ids)

    def is_xmp(self):
        return self.kind == b"mime" and self.content_type == b"application/rdf+xml"


class Cursor:
    def __init__(self, data, at):
        self.data, self.at = data, at

    def number(self, width):
        raw = span(self.data, self.at, width)
        self.at += width
        return int.from_bytes(raw, "big")

    def text(self):
        end = self.data.find(b"\0", self.at)
        require(end >= 0, "text without an end")
        text, self.at = self.data[self.at : end], end + 1
        return text


def full_box(data, box):
    version = unpack(">B", data, box.content)[0]
    return version, Cursor(data[: box.end], box.content + 4)


def item_infos(data, box):
    version, at = full_box(data, box)
    count = at.number(4 if version else 2)
    infos = {}
    for entry in boxes(data, at.at, box.end):
        entry_version, fields = full_box(data, entry)
        require(entry.kind == b"infe" and entry_version >= 2, "no item info")
        flags = int.from_bytes(data[entry.content + 1 : entry.content + 4], "big")
        number = fields.number(4 if entry_version == 3 else 2)
        fields.number(2)
        kind = fields.number(4).to_bytes(4, "big")
        fields.text()
        content_type = fields.text() if kind == b"mime" else b""
        infos[number] = Item(kind, content_type, b"", [], flags)
    require(len(infos) == count, f"{len(infos)} item infos, {count} counted")
    return infos


def locate_items(data, box, idat, infos):
    version, at = full_box(data, box)
    sizes, more = at.number(1), at.number(1)
    for _ in range(at.number(4 if version == 2 else 2)):
        number = at.number(4 if version == 2 else 2)
        method = at.number(2) & 15 if version else 0
        reference, base = at.number(2), at.number(more >> 4)
        require(method < 2 and reference == 0, f"item {number} is stored elsewhere")
        store = idat.content if method == 1 else 0
        for _ in range(at.number(2)):
            at.number(more & 15 if version else 0)
            start, size = store + base + at.number(sizes >> 4), at.number(sizes & 15)
            infos[number].data += span(data, start, size)
            infos[number].ranges.append((start, size))


def item_references(data, box, infos):
    version, at = full_box(data, box)
    width = 4 if version else 2
    for entry in boxes(data, at.at, box.end):
        fields = Cursor(data[: entry.end], entry.content)
        source = fields.number(width)
        targets = tuple(fields.number(width) for _ in range(fields.number(2)))
        infos[source].references += ((entry.kind, targets),)


def item_properties(data, box, infos):
    parts = {child.kind: child for child in boxes(data, box.content, box.end)}
    held = [data[child.start : child.end] for child in boxes(data, parts[b"ipco"].content, parts[b"ipco"].end)]
    version, at = full_box(data, parts[b"ipma"])
    wide = data[parts[b"ipma"].content + 3] & 1
    for _ in range(at.number(4)):
        number = at.number(4 if version else 2)
        for _ in range(at.number(1)):
            value = at.number(2 if wide else 1)
            bit = 0x8000 if wide else 0x80
            require(0 < (value & ~bit) <= len(held), f"item {number} has property {value & ~bit}")
            infos[number].properties += ((bool(value & bit), held[(value & ~bit) - 1]),)


def heic_items(data, meta):
    """Items by their ids, and the primary's id."""
    parts = {child.kind: child for child in boxes(data, meta.content + 4, meta.end)}
    infos = item_infos(data, parts[b"iinf"])
    locate_items(data, parts[b"iloc"], parts.get(b"idat"), infos)
    if b"iref" in parts:
        item_references(data, parts[b"iref"], infos)
    item_properties(data, parts[b"iprp"], infos)
    version, at = full_box(data, parts[b"pitm"])
    primary = at.number(4 if version else 2)
    require(primary in infos, "no primary item")
    return infos, primary


# XMP. -----------------------------------------------------------------------------------------------------------------


def rdf_value(element):
    """Text, a list for an array, a dictionary for a structure."""
    fields = {name: text for name, text in element.attrib.items() if not name.startswith(RDF)}
    for child in element:
        if child.tag in (RDF + "Seq", RDF + "Bag", RDF + "Alt"):
            return [rdf_value(entry) for entry in child]
        fields.update(rdf_value(child) if child.tag == RDF + "Description" else {child.tag: rdf_value(child)})
    return fields if fields or len(element) else element.text or ""


def xmp_properties(packet):
    """{"{namespace}name": value} of the description; an empty room has none."""
    text = packet.strip(b" \0\t\r\n")
    if not text:
        return {}
    try:
        root = ElementTree.fromstring(text)
    except ElementTree.ParseError as error:
        raise Damaged(f"XMP: {error}") from error
    description = root.find(f".//{RDF}Description")
    value = {} if description is None else rdf_value(description)
    return value if isinstance(value, dict) else {}


def directory_items(properties):
    """The container's items in order, as {"Semantic": ..., "Mime": ..., ...}."""
    items = []
    for entry in properties.get(CONTAINER + "Directory", []):
        fields = entry.get(CONTAINER + "Item", {}) if isinstance(entry, dict) else {}
        items.append({name.removeprefix(ITEM): value for name, value in fields.items()})
    return items


# The whole file. ------------------------------------------------------------------------------------------------------


@dataclass
class Photo:
    kind: str
    data: bytes
    image: object  # all that edits must not change, for comparison
    xmp: list  # packets with their padding
    properties: dict
    items: list
    trailer: Trailer
    video: bytes = None
    video_position: int = 0
    debug_info: bytes = None

    def records(self):
        return [(record.kind, record.name, record.data) for record in self.trailer.records] if self.trailer else []

    def item(self, semantic):
        return next((item for item in self.items if item.get("Semantic") == semantic), None)

    def motion_photo_faults(self):
        """Where trailer, XMP and video disagree; nothing for a plain still without such claims."""
        claims = self.properties.get(CAMERA + "MotionPhoto") == "1"
        item = self.item("MotionPhoto")
        if self.video is None:
            return ["XMP claims a video"] if claims or item else []
        if not item:
            return ["no item MotionPhoto"]
        box = 8 if self.kind == "heic" else None
        padding = box or self.video_position - self.trailer.start
        expected = {"Length": str(len(self.data) - self.video_position), "Mime": "video/mp4"}
        faults = [] if claims else ["GCamera:MotionPhoto is not 1"]
        for name, value in expected.items():
            if item.get(name) != value:
                faults.append(f"{name} {item.get(name)}, not {value}")
        primary = self.item("Primary") or {}
        if primary.get("Padding") != str(padding):
            faults.append(f"Padding {primary.get('Padding')}, not {padding}")
        return faults


def find_video(data, kind, trailer):
    """(position, bytes) of record 2608 or of what it points to; None without one."""
    records = trailer.records if trailer else []
    record = next((each for each in records if each.kind == VIDEO), None)
    if record is None:
        return None
    version = next((each.data[:4] for each in records if each.kind == VIDEO_VERSION), b"")
    if len(record.data) > MAX_POINTER_RECORD and (kind == "jpeg" or version == b"mpv1"):
        return record.position, record.data
    require(record.data[:3] == b"mpv", "record 2608 is neither a video nor a pointer")
    position, length = unpack(">II", record.data, 4)
    return position, span(data, position, length)


def read_jpeg(data, trailer):
    segments = jpeg_segments(data[: trailer.start] if trailer else data)
    packets = [segment.payload[len(XMP_ID) :] for segment in segments if segment.is_xmp()]
    debug = [segment.payload for segment in segments if segment.is_debug_info()]
    image = [
        (segment.code, segment.payload)
        for segment in segments
        if not (segment.is_xmp() or segment.is_blank_room() or segment.is_debug_info())
    ]
    return image, packets, debug


def read_heic(data, trailer):
    top = boxes(data, 0, len(data))
    if trailer:
        require(top[-1].kind == b"qrtd" and top[-1].content == trailer.start, "the trailer stands in no last box")
    debug_boxes = [box for box in top if box.kind == b"free" and data[box.content : box.content + 4] == b"cdif"]
    meta = next((box for box in top if box.kind == b"meta"), None)
    require(top[0].kind == b"ftyp" and meta, "no image")
    items, primary = heic_items(data, meta)
    ends = [box.end for box in top if box.kind in (b"ftyp", b"meta", b"mdat")]
    behind = [box.start for box in top if box.kind in (b"mpvd", b"qrtd") or box in debug_boxes]
    end = min([start for start in behind if start >= max(ends)], default=len(data))
    for item in items.values():
        require(all(start + size <= end for start, size in item.ranges), "an item lies behind the image")
    packets = [item.data for item in items.values() if item.is_xmp()]
    image = (primary, {number: item for number, item in items.items() if not item.is_xmp()})
    return image, packets, [data[box.content + 4 : box.end] for box in debug_boxes]


def read_photo(data):
    """Raises Damaged for what is no whole JPEG or HEIC still, or names bytes that are not there."""
    kind = "jpeg" if data[:2] == b"\xff\xd8" else "heic"
    trailer = read_trailer(data)
    image, packets, debug = (read_jpeg if kind == "jpeg" else read_heic)(data, trailer)
    properties = xmp_properties(packets[-1]) if packets else {}
    photo = Photo(kind, data, image, packets, properties, directory_items(properties), trailer)
    photo.debug_info = debug[-1] if debug else None
    video = find_video(data, kind, trailer)
    if video:
        photo.video_position, photo.video = video
    return photo
