"""A program on an X display: a window that covers the screen with a picture, shows what is typed, and saves it to a file.

    notepad.py DISPLAY PICTURE TYPED
"""

import pathlib
import sys
import warnings

from PIL import Image
from Xlib import X, XK, display

BACKGROUND, INK = 0xF5F5F5, 0x000000
LINE_HEIGHT, MARGIN = 40, 12


def open_window(screen):
    return screen.root.create_window(
        0, 0, screen.width_in_pixels, screen.height_in_pixels, 0, screen.root_depth, override_redirect=True,
        event_mask=X.KeyPressMask | X.ExposureMask)


def main():
    name, picture_path, typed_path = sys.argv[1:]
    connection = display.Display(name)
    window = open_window(connection.screen())
    # The window keeps its content itself, so that nothing but its first picture and the typed keys changes it.
    picture = Image.open(picture_path).convert("RGB")
    content = window.create_pixmap(picture.width, picture.height, connection.screen().root_depth)
    pen = content.create_gc(foreground=INK, background=BACKGROUND, font=connection.open_font("fixed"))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # Xlib calls PIL in a way that is about to go
        content.put_pil_image(pen, 0, 0, picture)
    window.change_attributes(background_pixmap=content)
    window.map()
    window.set_input_focus(X.RevertToParent, X.CurrentTime)
    connection.sync()
    typed = pathlib.Path(typed_path)
    typed.write_text("")
    while True:
        event = connection.next_event()
        if event.type != X.KeyPress:
            continue
        symbol = connection.keycode_to_keysym(event.detail, 1 if event.state & X.ShiftMask else 0)
        character = "\n" if symbol == XK.XK_Return else XK.keysym_to_string(symbol) or ""
        typed.write_text(typed.read_text() + character)
        line = typed.read_text().splitlines()[-1] if typed.read_text() else ""
        top = picture.height - LINE_HEIGHT
        pen.change(foreground=BACKGROUND)
        content.fill_rectangle(pen, 0, top, picture.width, LINE_HEIGHT)
        pen.change(foreground=INK)
        content.draw_text(pen, MARGIN, top + LINE_HEIGHT // 2, line.encode("latin-1", "replace"))
        window.clear_area()
        connection.sync()


main()
