#!/usr/bin/env python3
"""The pictures that are checked in show what their sources say."""

import glob
import html
import os
import re
import unittest

PICTURES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../docs/pictures")
WORD = r"[A-Za-z]\w*"


def without(text, *patterns):
    for pattern in patterns:
        text = re.sub(pattern, "", text)
    return text


def ofSource(text):
    """Nodes and edges of the source, and the lines of all labels."""
    labels = [line.strip() for label in re.findall(r'label="([^"]*)"', text)
              for line in label.split("\\n")]
    text = without(text, r"//.*", r"\[[^\]]*\]", r'"[^"]*"')
    edges = {(a, b) for a, b in re.findall(rf"({WORD})\s*->\s*({WORD})", text)}
    nodes = {node for edge in edges for node in edge}
    return nodes, edges, sorted(label for label in labels if label)


def ofPicture(text):
    titles = [html.unescape(title) for title in re.findall(r"<title>([^<]*)</title>", text)][1:]
    edges = {tuple(title.split("->")) for title in titles if "->" in title}
    nodes = {title for title in titles if "->" not in title and not title.startswith("cluster_")}
    labels = [html.unescape(label).strip() for label in re.findall(r"<text[^>]*>([^<]*)</text>", text)]
    return nodes, edges, sorted(label for label in labels if label)


class Pictures(unittest.TestCase):
    maxDiff = None

    def test_each_is_made_from_its_source_as_it_is(self):
        sources = glob.glob(os.path.join(PICTURES, "*.dot"))
        self.assertTrue(sources)
        for source in sources:
            with self.subTest(source=os.path.basename(source)), \
                 open(source, encoding="utf-8") as text, \
                 open(source[:-4] + ".svg", encoding="utf-8") as picture:
                self.assertEqual(ofPicture(picture.read()), ofSource(text.read()),
                                 "make it again: dot -Tsvg NAME.dot -o NAME.svg")


if __name__ == "__main__":
    unittest.main()
