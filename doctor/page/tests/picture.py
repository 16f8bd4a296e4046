#!/usr/bin/python3
"""Takes a picture of a page's verdict and lanes: picture.py PAGE PICTURE.png [dark]"""

import sys

from browser import Browser


def main():
    page, picture, *scheme = sys.argv[1:]
    browser = Browser()
    try:
        browser.open(page, width=1000, scheme=scheme[0] if scheme else "light")
        # Only the verdict and the lanes, without what has no use on a picture.
        browser.run("""
            for (const element of document.querySelectorAll("#theme, .verdict ~ .finding, #filter, .buttons, #plot-keys, #tables, .columns, .columns ~ section, footer")) {
              element.hidden = true;
            }""")
        browser.picture(picture)
    finally:
        browser.close()


if __name__ == "__main__":
    main()
