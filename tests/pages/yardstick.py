#!/usr/bin/python3
"""The anchors of pages as an HTML5 parser (html5lib) reads them, for comparison with the facade.

    yardstick.py BASE_URL PAGE...

Prints one JSON object: for each page, the list of [target, innerHTML] of its links (a and area
elements with an href) in document order. innerHTML is written as the facade writes it: element
names in capitals, attributes as parsed, the escapes of the HTML fragment serialization. A target
is the href as written when it names a scheme, else resolved against the page's base.
"""
import json
import re
import sys
import xml.etree.ElementTree as ElementTree

import html5lib

VOID = {'area', 'base', 'basefont', 'bgsound', 'br', 'col', 'embed', 'frame', 'hr', 'img', 'input',
        'keygen', 'link', 'meta', 'param', 'source', 'track', 'wbr'}
RAW_TEXT = {'script', 'style', 'xmp', 'iframe', 'noembed', 'noframes', 'plaintext'}


def local(tag):
    return tag.rsplit('}', 1)[-1]


def text(value, raw):
    if raw:
        return value
    return (value.replace('&', '&amp;').replace('\xa0', '&nbsp;')
            .replace('<', '&lt;').replace('>', '&gt;'))


def attribute(value):
    return value.replace('&', '&amp;').replace('\xa0', '&nbsp;').replace('"', '&quot;')


def children(element, out):
    raw = local(element.tag) in RAW_TEXT
    if element.text:
        out.append(text(element.text, raw))
    for child in element:
        node(child, out)
        if child.tail:
            out.append(text(child.tail, raw))


def node(element, out):
    if element.tag is ElementTree.Comment:
        out.append('<!--%s-->' % element.text)
        return
    if not isinstance(element.tag, str):
        return
    name = local(element.tag).upper()
    attributes = ''.join(' %s="%s"' % (local(key), attribute(value)) for key, value in element.attrib.items())
    out.append('<%s%s>' % (name, attributes))
    if local(element.tag) not in VOID:
        children(element, out)
        out.append('</%s>' % name)


def trim(url):
    return url.strip(''.join(chr(c) for c in range(0x21)))


def quote(text):
    return ''.join(c if 0x20 < ord(c) < 0x7F and c not in '"<>`' else
                   ''.join('%%%02X' % b for b in c.encode('utf-8', 'replace')) for c in text)


def remove_dots(path):
    output = []
    segments = path.split('/')
    for n, segment in enumerate(segments[1:] if path.startswith('/') else segments):
        last = n == len(segments) - (2 if path.startswith('/') else 1)
        if segment.lower() in ('.', '%2e'):
            output += [''] if last else []
        elif segment.lower() in ('..', '.%2e', '%2e.', '%2e%2e'):
            output = output[:-1] + ([''] if last else [])
        else:
            output.append(segment)
    return ('/' if path.startswith('/') else '') + '/'.join(output)


def target(base, href):
    """The generic syntax's resolution, escapes kept, as a browser's href property gives it."""
    href = trim(href)
    if re.match(r'[A-Za-z][A-Za-z0-9+.-]*:', href):
        return href
    href = re.sub(r'[\t\n\r]', '', href)
    cut = re.search(r'[?#]', href)
    head, tail = (href[:cut.start()], href[cut.start():]) if cut else (href, '')
    href = head.replace('\\', '/') + tail
    b = re.match(r'([^:]+):(//([^/?#]*))?([^?#]*)(\?([^#]*))?', base)
    r = re.match(r'(//([^/?#]*))?([^?#]*)(\?([^#]*))?(#(.*))?', href)
    authority, path, query = b.group(3), b.group(4), b.group(6)
    if r.group(1) is not None:
        authority, path, query = r.group(2), remove_dots(r.group(3)), r.group(5)
    elif r.group(3) == '':
        query = r.group(5) if r.group(4) is not None else query
    else:
        query = r.group(5)
        if r.group(3).startswith('/'):
            path = remove_dots(r.group(3))
        else:
            merged = '/' + r.group(3) if authority is not None and path == '' else path[:path.rfind('/') + 1] + r.group(3)
            path = remove_dots(merged)
    if authority is not None and path == '':
        path = '/'
    out = b.group(1) + ':' + ('//' + authority if authority is not None else '') + quote(path)
    out += '?' + quote(query) if query is not None else ''
    out += '#' + quote(r.group(7)) if r.group(6) is not None else ''
    return out


def anchors(path, page_url):
    with open(path, 'rb') as page:
        document = html5lib.parse(page.read(), namespaceHTMLElements=False, useChardet=False,
                                  default_encoding='windows-1252')
    base = page_url
    for element in document.iter():
        if isinstance(element.tag, str) and local(element.tag) == 'base' and 'href' in element.attrib:
            base = target(page_url, element.attrib['href'])
            break
    found = []
    for element in document.iter():
        if isinstance(element.tag, str) and local(element.tag) in ('a', 'area') and 'href' in element.attrib:
            out = []
            if local(element.tag) not in VOID:
                children(element, out)
            found.append([target(base, element.attrib['href']), ''.join(out)])
    return found


if __name__ == '__main__':
    print(json.dumps({path: anchors(path, sys.argv[1]) for path in sys.argv[2:]}))
