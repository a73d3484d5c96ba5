#!/usr/bin/python3
"""How far the element facade reads tag soup as an HTML5 parser does, kind by kind.

    bench/soup_corpus.py build/bin/page_bench [PAGES_PER_KIND]

Writes a seeded corpus of soup pages to a temporary folder, each kind of soup on pages of its own
(records of auction links with a picture link and a title), reads each page with the facade
(page_bench --anchors) and with tests/pages/yardstick.py (Debian's python3-html5lib), and prints,
per kind, the pages whose links (targets and innerHTML) agree whole and the links that agree.
"""
import json
import os
import random
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
YARDSTICK = os.path.join(HERE, '..', 'tests', 'pages', 'yardstick.py')
BASE = 'http://listings.ebay.com/x'
INLINE = ['b', 'i', 'font', 'u', 'span', 'small', 'big', 'em', 'strong', 's', 'strike', 'tt']
BLOCK = ['div', 'p', 'center', 'blockquote', 'h3', 'li', 'dd', 'dt', 'pre']
WORDS = ['Gold', 'Coin', 'Lot', 'NEW', 'Vintage', 'Silver', 'Rare', 'Box', 'Set', '1oz']
REFERENCES = ['&amp;', '&AMP;', '&amp', '&copy', '&#150;', '&#x96;', '&nbsp;', '&notit;', '&lt;', '&Eacute;',
              '&eacute', '&#0;', '&#128;', '&quot;', '&ampx', '&#9999999;']
KINDS = ['unclosed inline tags', 'deep nesting', 'references', '</br>', 'empty comments',
         'an anchor in an anchor', 'text-only elements', 'malformed attributes', 'a table in an anchor',
         'a block in an anchor', 'mutated bytes']


def page(rnd, kind):
    words = WORDS + REFERENCES if kind == 'references' else WORDS
    shape = rnd.choice(['li', 'p', 'td', 'div', 'flat', 'tr'])

    def title():
        return ' '.join(rnd.choice(words) for _ in range(rnd.randint(2, 6)))

    def record(i):
        href = 'http://cgi.ebay.com/item%d_W0QQitemZ%d' % (i, i)
        t = title()
        picture = '<a href="%s"><img src="p%d.jpg" border=0></a>' % (href, i)
        if kind == 'unclosed inline tags':
            opener = ''.join('<%s>' % rnd.choice(INLINE) for _ in range(rnd.randint(1, 5)))
            link = '%s<a href="%s">%s</a>' % (opener, href, t)
            return {'li': '<li>' + picture + link, 'p': '<p>' + picture + link,
                    'td': '<tr><td>' + picture + '<td>' + link, 'div': '<div>' + picture + link + '</div>',
                    'flat': picture + link + '<br>', 'tr': '<tr><td>' + picture + '</td><td>' + link + '</td></tr>'}[shape]
        if kind == 'deep nesting':
            return '<font>' * rnd.randint(0, 40) + '<a href="%s">%s</a>' % (href, t)
        if kind == '</br>':
            return '%s<a href="%s">%s</br>%s</a></br>' % (picture, href, t, title())
        if kind == 'empty comments':
            return rnd.choice(['<!-->', '<!--->', '<!-- x --!>', '<!---->']) + '%s<a href="%s">%s</a><br>' % (picture, href, t)
        if kind == 'an anchor in an anchor':
            return '<a href="%s">%s <b><a href="%s/2">%s</a></b> tail</a>' % (href, t, href, title())
        if kind == 'text-only elements':
            tag = rnd.choice(['textarea', 'xmp', 'title', 'noembed'])
            return '<a href="%s">%s<%s><a href="x">%s</a></%s>%s</a>' % (href, t, tag, title(), tag, title())
        if kind == 'malformed attributes':
            return rnd.choice(['<a href="%s"title="x">%s</a>', "<a href='%s' class=x\"y>%s</a>", '<a  href = %s  @x=1 >%s</a>',
                               '<a href="%s" href="other">%s</a>', '<a href="%s"/>%s</a>', '<a href=%s/>%s</a>']) % (href, t)
        if kind == 'a table in an anchor':
            return '<a href="%s"><table><tr><td>%s</td></tr></table>%s</a>' % (href, t, title())
        if kind == 'a block in an anchor':
            block = rnd.choice(BLOCK)
            return '<p><a href="%s">%s<%s>%s</%s>%s</a></p>' % (href, t, block, title(), block, title())
        return '%s<a href="%s">%s</a><br>' % (picture, href, t)

    body = ''.join(record(i) for i in range(rnd.randint(5, 60)))
    in_table = kind != 'unclosed inline tags' or shape in ('td', 'tr')
    html = ('<html><head><title>Soup</title></head><body>' + ('<table><tr><td>' if in_table else '') + body +
            ('</table>' if in_table else '') + '</body></html>').encode('latin-1', 'replace')
    if kind == 'mutated bytes':
        html = bytearray(html)
        for _ in range(rnd.randint(1, 20)):
            html[rnd.randrange(len(html))] = rnd.choice(b'<>/&;"\'=!- abc')
    return bytes(html)


def read(command, files):
    found = {}
    for i in range(0, len(files), 200):
        found.update(json.loads(subprocess.run(command + files[i:i + 200], capture_output=True, check=True).stdout))
    return found


def main():
    page_bench = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 60
    rnd = random.Random(11)
    with tempfile.TemporaryDirectory() as folder:
        for kind in KINDS:
            files = []
            for n in range(count):
                path = os.path.join(folder, '%s-%d.htm' % (KINDS.index(kind), n))
                with open(path, 'wb') as out:
                    out.write(page(rnd, kind))
                files.append(path)
            ours = read([page_bench, '--anchors', BASE], files)
            theirs = read(['/usr/bin/python3', YARDSTICK, BASE], files)
            pages = sum(ours[f] == theirs[f] for f in files)
            same = sum(sum(a == b for a, b in zip(ours[f], theirs[f])) for f in files)
            total = sum(len(theirs[f]) for f in files)
            print('%-24s pages %3d/%d, links %5d/%d' % (kind, pages, count, same, total))


if __name__ == '__main__':
    main()
