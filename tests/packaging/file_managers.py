#!/usr/bin/python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""file_managers.py gnome|tumbler FILE...

Has the thumbnails of files made as file managers do: by GNOME's library, in its sandbox, or by the service of Xfce's, over
D-Bus. Prints for each file the MIME type, and the size of its thumbnail in the cache or why there is none."""
import sys

import gi

gi.require_version("GdkPixbuf", "2.0")
gi.require_version("GnomeDesktop", "3.0")
from gi.repository import GdkPixbuf, Gio, GLib, GnomeDesktop

FACTORY = GnomeDesktop.DesktopThumbnailFactory.new(GnomeDesktop.DesktopThumbnailSize.LARGE)


def facts_of(name):
    """The URI, the MIME type and the time of a file."""
    file = Gio.File.new_for_commandline_arg(name)
    info = file.query_info("standard::content-type,time::modified", 0, None)
    return file.get_uri(), info.get_content_type(), info.get_attribute_uint64("time::modified")


def make_with_gnome(uri, mime_type, time):
    if not FACTORY.can_thumbnail(uri, mime_type, time):
        return "no thumbnailer takes it"
    try:
        FACTORY.save_thumbnail(FACTORY.generate_thumbnail(uri, mime_type, None), uri, time, None)
    except GLib.Error as error:
        return error.message
    return None


def make_with_tumbler(uri, mime_type, _time):
    name = "org.freedesktop.thumbnails.Thumbnailer1"
    service = Gio.DBusProxy.new_for_bus_sync(
        Gio.BusType.SESSION, 0, None, name, "/org/freedesktop/thumbnails/Thumbnailer1", name, None
    )
    loop, errors = GLib.MainLoop(), []

    def receive(_proxy, _sender, signal, arguments):
        if signal == "Error":
            errors.append(arguments.unpack()[-1])
        if signal == "Finished":
            loop.quit()

    service.connect("g-signal", receive)
    service.call_sync("Queue", GLib.Variant("(asasssu)", ([uri], [mime_type], "large", "default", 0)), 0, -1, None)
    GLib.timeout_add_seconds(60, loop.quit)
    loop.run()
    return errors[0] if errors else None


make = {"gnome": make_with_gnome, "tumbler": make_with_tumbler}[sys.argv[1]]
for name in sys.argv[2:]:
    uri, mime_type, time = facts_of(name)
    result = make(uri, mime_type, time)
    cached = FACTORY.lookup(uri, time)
    if cached:
        picture = GdkPixbuf.Pixbuf.new_from_file(cached)
        result = f"{picture.get_width()}x{picture.get_height()}"
        assert picture.get_option("tEXt::Thumb::URI") == uri
    print(name, mime_type, result)
