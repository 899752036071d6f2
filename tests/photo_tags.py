#!/usr/bin/python3
"""Photographs tagged as a phone tags them, for the tool's tests, and their tags
as Pillow (not the tool) reads them.

  photo_tags.py make OUT.jpg|OUT.png LEVEL EXPOSURE_TIME ORIENTATION [OUT ...]
      64x48 pictures around grey LEVEL; EXPOSURE_TIME 0 leaves out the EXIF,
      and in a JPEG the XMP and ICC profile too
  photo_tags.py tags FILE...
      one line a tag: EXIF entries by IFD, XMP packets, the profile's hash,
      whether an sRGB chunk is there, a JPEG's first luma quantizer (2 at
      quality 95, 16 at 50)
"""
import hashlib
import struct
import sys

from fractions import Fraction

from PIL import Image, ImageCms
from PIL.TiffImagePlugin import IFDRational

XMP = b'http://ns.adobe.com/xap/1.0/\0<x:xmpmeta xmlns:x="adobe:ns:meta/"><dc:creator>A. Photographer</dc:creator></x:xmpmeta>'


def make(path, level, exposure_time, orientation):
    level, exposure_time = int(level), Fraction(exposure_time)
    image = Image.new("RGB", (64, 48))
    image.putdata([(min(255, level + x), level, max(0, level - y)) for y in range(48) for x in range(64)])
    options = {}
    if exposure_time > 0:
        exif = Image.Exif()
        exif.update({0x0112: int(orientation), 0x010F: "Maker", 0x0110: "Phone 1", 0x8298: "(c) A. Photographer"})
        exif[0x8769] = {0x829A: IFDRational(exposure_time), 0x829D: IFDRational(9, 5), 0x8827: 100, 0x9003: "2026:11:20 10:00:00",
                        0xA002: 1920, 0xA003: 1080}
        exif[0x8825] = {1: "N", 2: (48.0, 51.0, 30.0)}
        profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
        options = {"exif": exif.tobytes(), "icc_profile": profile}
    image.save(path, quality=95, **options)
    if path.endswith(".jpg") and exposure_time > 0:  # the XMP packet right after the start of image
        data = open(path, "rb").read()
        open(path, "wb").write(data[:2] + b"\xff\xe1" + struct.pack(">H", len(XMP) + 2) + XMP + data[2:])


def tags(path):
    image = Image.open(path)
    exif = image.getexif()
    lines = ["size %dx%d" % image.size]
    for name, ifd in (("0th", exif), ("Exif", exif.get_ifd(0x8769)), ("GPS", exif.get_ifd(0x8825))):
        lines += ["%s %#06x %r" % (name, tag, value) for tag, value in sorted(ifd.items()) if tag not in (0x8769, 0x8825)]
    lines += ["xmp %r" % data for marker, data in getattr(image, "applist", []) if data.startswith(b"http://ns.adobe")]
    profile = image.info.get("icc_profile")
    lines.append("icc " + (hashlib.sha1(profile).hexdigest() if profile else "none"))
    lines.append("srgb %s" % ("srgb" in image.info))
    if hasattr(image, "quantization"):
        lines.append("quantizer %d" % image.quantization[0][0])
    return lines


if __name__ == "__main__":
    if sys.argv[1] == "make":
        for at in range(2, len(sys.argv), 4):
            make(*sys.argv[at:at + 4])
    else:
        for path in sys.argv[2:]:
            print("\n".join(tags(path)))
