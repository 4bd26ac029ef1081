#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz harnesses into fuzz/corpus/<harness>/.

Every seed is small and made here by hand: valid texts and scene files of
each format, plus the malformed inputs each reader must refuse with a
message. Run it again after changing it; it replaces the corpus folders.
"""
import os
import shutil
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")

TYPES = ["bool", "double", "dbl4x4", "float", "flt4x4", "int8", "int16", "int32",
         "int64", "string", "uint8", "uint16", "uint32", "uint64"]
# One value text per type, in type order.
VALUES = ["true", "-2.5", " ".join(str(i) for i in range(16)), "1e+20",
          " ".join(str(i / 4) for i in range(16)), "-128", "32767", "-7", "-9000000000",
          '"a \\"q\\" \\\\ b\\nc"', "255", "65535", "4294967295", "18446744073709551615"]


def write(harness, name, data):
    folder = os.path.join(CORPUS, harness)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode("utf-8")
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


# Value text: byte 0 the type, byte 1 the length choice (low nibble: 1, 3,
# 16) and the value index (high nibble).
def value_text():
    samples = {
        "bool": ["True", "f", "yes", ""], "double": ["3.14159265", "1e999", "  42abc", "nan"],
        "dbl4x4": [VALUES[2], "1 2 x 4 5 6 7 8 9 10 11 y 13 14 15 16", "1e400"],
        "float": ["3.5", "3.5e38", "-0", "1e-46"],
        "flt4x4": [VALUES[4], "inf " * 16], "int8": ["127", "-129", "0x10"],
        "int16": ["-32768", "40000"], "int32": ["2147483647", "2147483648", "+5"],
        "int64": ["-9223372036854775808", "9223372036854775808"],
        "string": ["hello world", "", "nul\0inside", "\xff\xfe"],
        "uint8": ["255", "300", "-1"], "uint16": ["65535", "65536"],
        "uint32": ["4294967295", "-1"], "uint64": ["18446744073709551615", "18446744073709551616"],
    }
    for t, texts in samples.items():
        code = TYPES.index(t)
        for i, text in enumerate(texts):
            write("value_text", f"{t}-{i}", bytes([code, 0]) + text.encode("latin-1"))
        # Length 3, value 2; length 16, value 15; length 1, value 1 (past the end).
        write("value_text", f"{t}-len3", bytes([code, 0x21]) + texts[0].encode("latin-1"))
        write("value_text", f"{t}-len16", bytes([code, 0xf2]) + texts[0].encode("latin-1"))
        write("value_text", f"{t}-past", bytes([code, 0x10]) + texts[0].encode("latin-1"))


# Index text: byte 0 picks numeric, pair, string, or a type name on the first
# line.
def index_text():
    cases = [(0, " 42\t"), (0, ""), (0, "-1"), (0, "12 34"), (0, "4294967296"),
             (1, "3 4"), (1, "3"), (1, "3,4"), (1, "3 4 5"), (1, "4294967295 0\r"),
             (2, ""), (2, "vertex name"), (3, "triple\n1"), (3, "pair\n1 2"),
             (3, "numeric\n7")]
    for i, (kind, text) in enumerate(cases):
        write("index_text", f"index-{i}", bytes([kind]) + text.encode())


STRUCTURES = [
    "name=My Structure:int32=ID:float[3]=Origin",
    "name=My Structure\nint32=ID\nfloat[3]=Origin\n",
    "name=S", "name=S::int32=a", "int32=a:name=S", "name=S:int32=a:float=b=c",
    "name= A B :int32= x ", "name=S:[3]=v", "name=S:float3]=v", "name=S:float[3=v",
    "name=S:vec=a", "int32=a", "name=S:float[4294967295]=big", "name=S:dbl4x4[33554432]=m",
    "name=S:float[0]=z", "name=S:float[3x]=v", "name=S:int8=a:int8=a",
    "name=all:" + ":".join(f"{t}[3]={t}" for t in TYPES),
]


def structure_raw():
    for i, text in enumerate(STRUCTURES):
        write("structure_raw", f"structure-{i}", text)


def element(length, values=VALUES):
    return " ".join(" ".join([v] * length) for v in values)


def stream_text(name, structure, elements, index_type=None, end=True):
    lines = [f"name {name}"]
    if index_type:
        lines.append(f"indexType {index_type}")
    lines.append(f"structure {structure}")
    for index, data in elements:
        lines += [index, data]
    if end:
        lines.append("endStream")
    return "\n".join(lines) + "\n"


def streams():
    """Valid and malformed stream texts, by name."""
    t = {}
    for length in (1, 3, 16):
        t[f"all{length}"] = stream_text(f"s{length}", f"all{length}",
                                        [("0", element(length)), ("7", element(length))])
    for code, name in enumerate(TYPES):
        t[f"{name}x3"] = stream_text("one", f"{name}x3", [("2", element(3, [VALUES[code]]))])
    t["pair"] = stream_text("edges", "int32x1", [("3 4", "5"), ("1 9", "6")], "pair")
    t["string"] = stream_text("named", "stringx1", [("left arm", '"x"'), ("", "")], "string")
    t["empty"] = stream_text("nothing", "int8x1", [])
    t["no-name"] = "structure int8x1\n0\n1\nendStream\n"
    t["no-structure"] = "name s\n0\n1\nendStream\n"
    t["unknown-structure"] = "name s\nstructure nope\n0\n1\nendStream\n"
    t["unknown-index"] = "name s\nindexType triple\nstructure int8x1\nendStream\n"
    t["bad-index"] = stream_text("s", "int8x1", [("-1", "1"), ("1 2", "2")])
    t["bad-values"] = stream_text("s", "all1", [("0", "yes 1e999 " + "x " * 16 + "1e39 " +
                                                "nan " * 16 + "300 40000 1 1 noquote")])
    t["unterminated-string"] = 'name s\nstructure stringx1\n0\n"never closed\\'
    t["no-end"] = stream_text("s", "int32x1", [("0", "1")], end=False)
    t["long-line"] = "name " + "n" * 1100 + "\nstructure int8x1\nendStream\n"
    t["trailing"] = stream_text("s", "int32x1", [("0", "1")]) + "after the end\n"
    t["huge-index"] = stream_text("s", "int32x1", [("4294967295", "1"), ("0", "2")])
    return t


def stream_raw():
    for name, text in streams().items():
        write("stream_raw", name, text)


def channel_text(name, stream_texts, end=True):
    body = f"name {name}\n" + "".join("stream\n" + s for s in stream_texts)
    return body + ("endChannel\n" if end else "")


def channels():
    s = streams()
    t = {
        "two": channel_text("vertex", [s["all1"], s["int32x3"]]),
        "all16": channel_text("big", [s["all16"]]),
        "empty": channel_text("empty", []),
        "keys": channel_text("edge", [s["pair"], s["string"]]),
        "same-name": channel_text("c", [s["int8x3"], s["int8x3"]]),
        "bad-stream": channel_text("c", [s["bad-values"], s["int8x3"]]),
        "index-type": "name c\nindexType pair\nendChannel\n",
        "no-end": channel_text("c", [s["int8x3"]], end=False),
        "end-without-newline": "name c\nendChannel",
    }
    return t


def channel_raw():
    for name, text in channels().items():
        write("channel_raw", name, text)


def associations_texts():
    c = channels()
    return {
        "three": "channel face\n" + c["two"] + "channel\n" + c["keys"] + "channel edge\n" +
                 c["all16"] + "endAssociations\n",
        "empty": "endAssociations\n",
        "empty-channel": "channel\n" + c["empty"] + "endAssociations\n",
        "bad-middle": "channel\n" + c["two"] + "channel\n" + c["bad-stream"] + "channel\n" +
                      c["keys"] + "endAssociations\n",
        "unknown-keyword": "chanel\n" + c["two"] + "endAssociations\n",
        "no-end": "channel\n" + c["two"],
        "nothing": "",
    }


def associations_raw():
    for name, text in associations_texts().items():
        write("associations_raw", name, text)


def round_trip():
    for name, text in streams().items():
        write("round_trip", "stream-" + name, b"\x00" + text.encode())
    for name, text in channels().items():
        write("round_trip", "channel-" + name, b"\x01" + text.encode())
    for name, text in associations_texts().items():
        write("round_trip", "associations-" + name, b"\x02" + text.encode())


# ASCII scene files.
HEADER = "//Tarn ASCII 2014 scene\n"
BODY = ('createNode transform -n "pCube1";\n'
        '\tsetAttr ".t" -type "double3" 0 1 2 ;\n'
        'createNode mesh -n "pCubeShape1" -p "pCube1";\n'
        'connectAttr "a.b" "c.d";\n')
TRAILER = "// End of scene.ta\n"


def escape_value(text):
    out = []
    for ch in text:
        code = ord(ch)
        named = {10: "n", 8: "b", 9: "t", 7: "a", 12: "f", 11: "v", 13: "r"}
        if code < 32 or code == 127:
            out.append("\\" + named.get(code, f"{code:03o}"))
        elif ch in '"\\':
            out.append("\\" + ch)
        else:
            out.append(ch)
    return "".join(out)


FZ = "name=fz:int32=id:float[3]=p:string=s"
SCENE = ("channel\nname vertex\nstream\nname pos\nindexType numeric\nstructure fz\n"
         '5\n7 1 2.5 -3 "tab\there \\"q\\" \\\\"\nendStream\nendChannel\nendAssociations\n')


def structure_statement(text):
    return f'dataStructure -fmt "raw" -as "{text.replace(chr(10), chr(92) + "n")}";\n'


def associations_statement(text, target):
    return f'applyMetadata -fmt "raw" -v "{escape_value(text)}" \n\t\t{target};\n'


def ascii_files():
    meta = structure_statement(FZ) + associations_statement(SCENE, "-scn")
    node = associations_statement(SCENE, "pCubeShape1")
    big = "".join(structure_statement(f"name=s{i}:int32=a{i}:string=b{i}") for i in range(40))
    return {
        "plain": HEADER + BODY + TRAILER,
        "scene": HEADER + BODY + meta + TRAILER,
        "node": HEADER + BODY + structure_statement(FZ) + node + TRAILER,
        "many-blocks": HEADER + BODY + big + meta + TRAILER,
        "crlf": (HEADER + BODY + meta + TRAILER).replace("\n", "\r\n"),
        "cr-only": (HEADER + BODY + meta + TRAILER).replace("\n", "\r"),
        "empty": "",
        "header-only": HEADER,
        "old-year": HEADER.replace("2014", "2013") + BODY + TRAILER,
        "bad-start": "//Tarn ascii 2014 scene\n" + BODY + TRAILER,
        "bad-end": "//Tarn ASCII 2014 scenes\n" + BODY + TRAILER,
        "short-header": "//Tarn ASCII 14\n",
        "no-trailer": HEADER + BODY + meta,
        "unterminated-quote": HEADER + BODY + 'dataStructure -fmt "raw -as "name=x;\n' + TRAILER,
        "backslash-end": HEADER + BODY + 'applyMetadata -fmt "raw" -v "\\" \n\t\t-scn;\n' + TRAILER,
        "octal": HEADER + BODY + 'applyMetadata -fmt "raw" -v "\\777\\0\\12" \n\t\t-scn;\n'
                 + TRAILER,
        "invalid-utf8": HEADER + BODY + structure_statement(FZ) +
                        associations_statement(SCENE.replace("tab", "\udcff"), "-scn") + TRAILER,
        "unknown-format": HEADER + BODY + 'dataStructure -fmt "xml" -as "name=x:int8=a";\n'
                          + TRAILER,
        "no-target": HEADER + BODY + 'applyMetadata -fmt "raw" -v "endAssociations";\n' + TRAILER,
        "block-sized": HEADER + "//" + "x" * (2048 - len(HEADER) - len(TRAILER) - 3) + "\n"
                       + TRAILER,
        "metadata-before-body": HEADER + meta + BODY + TRAILER,
    }


def ascii_read():
    for name, text in ascii_files().items():
        write("ascii_read", name, text.encode("utf-8", "surrogateescape"))


def ascii_write():
    for name, text in ascii_files().items():
        write("ascii_write", name, text.encode("utf-8", "surrogateescape"))


# Binary scene files: 16-byte chunk headers (tag, 4 zero bytes, big-endian
# 64-bit size), data, zero padding to 8.
def chunk(tag, data):
    pad = (8 - len(data) % 8) % 8
    return tag + b"\0" * 4 + struct.pack(">Q", len(data)) + data + b"\0" * pad


def binary_file(trailer_chunks, scene=None):
    scene = scene if scene is not None else [chunk(b"MESH", b"vertices 8")]
    content = b"".join(trailer_chunks)
    bcsz = b"BCSZ" + b"\0" * 4 + struct.pack(">Q", 4) + struct.pack(">I", len(content) + 20) \
        + b"\0" * 4
    trailer = b"FOR8" + b"\0" * 4 + struct.pack(">Q", len(content) + 28) + b"TRLR" + content + bcsz
    body = b"Tarn" + b"".join(scene) + trailer
    return b"FOR8" + b"\0" * 4 + struct.pack(">Q", len(body)) + body


def dats(text):
    return chunk(b"DATS", b"raw\0" + text.encode() + b"\0")


def mtda(tag, name, text):
    return chunk(tag, name.encode() + b"\0raw\0" + text.encode() + b"\0")


def binary_files():
    meta = [dats(FZ), mtda(b"SMTD", "", SCENE), mtda(b"MTDA", "pCubeShape1", SCENE)]
    host = chunk(b"HOST", b"kept as is")
    good = binary_file(meta)
    files = {
        "plain": binary_file([]),
        "metadata": good,
        "host-chunks": binary_file([host] + meta + [host]),
        "metadata-before-dats": binary_file([mtda(b"MTDA", "early", SCENE)] + meta),
        "empty": b"",
        "short": good[:19],
        "not-tarn": b"FORM" + good[4:],
        "main-size-zero": good[:8] + struct.pack(">Q", 0) + good[16:],
        "main-size-small": good[:8] + struct.pack(">Q", 40) + good[16:],
        "main-size-large": good[:8] + struct.pack(">Q", len(good) + 64) + good[16:],
        "main-size-huge": good[:8] + struct.pack(">Q", 2**64 - 8) + good[16:],
        "no-bcsz": good[:-24] + b"XXXX" + good[-20:],
        "bcsz-size-8": good[:-16] + struct.pack(">Q", 8) + good[-8:],
        "backward-zero": good[:-8] + struct.pack(">I", 0) + good[-4:],
        "backward-small": good[:-8] + struct.pack(">I", 12) + good[-4:],
        "backward-past-start": good[:-8] + struct.pack(">I", len(good) + 100) + good[-4:],
        "backward-into-body": good[:-8] + struct.pack(">I", len(good) - 24) + good[-4:],
        "dats-claims-2-62": binary_file([b"DATS" + b"\0" * 4 + struct.pack(">Q", 2**62)]),
        "chunk-size-wraps": binary_file([b"HOST" + b"\0" * 4 + struct.pack(">Q", 2**64 - 16)]),
        "dats-without-nul": binary_file([chunk(b"DATS", b"raw")]),
        "mtda-without-nul": binary_file([chunk(b"MTDA", b"node\0raw")]),
        "bad-structure": binary_file([dats("name=x:vec=a")]),
        "utf8": binary_file([dats("name=f\u00fc:int8=\u00e9"), mtda(b"SMTD", "", "endAssociations\n")]),
    }
    return files


def binary_read():
    for name, data in binary_files().items():
        write("binary_read", name, data)


def binary_write():
    for name, data in binary_files().items():
        write("binary_write", name, data)


def main():
    if os.path.isdir(CORPUS):
        shutil.rmtree(CORPUS)
    for make in (value_text, index_text, structure_raw, stream_raw, channel_raw,
                 associations_raw, round_trip, ascii_read, ascii_write, binary_read,
                 binary_write):
        make()


if __name__ == "__main__":
    main()
