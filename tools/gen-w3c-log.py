#!/usr/bin/env python3
"""Writes a realistic W3C Extended web-server log to standard output, for tests and benchmarks.

    python3 tools/gen-w3c-log.py --lines 1000000 > file.log

The log opens with #Software / #Version / #Date / #Fields directives and repeats the #Date and
#Fields pair at every change of day, as a server does when it starts a new day. Client addresses
come from a pool of several thousand, each with a stable user agent, and visit a site of pages,
scripts and images; some requests miss (404), robots ask for robots.txt, referrers come from
search engines and from the site itself. Lines end with CR LF unless --lf is given. The same
--seed always gives the same bytes.
"""

import argparse
import random
import sys

FIELDS = ("date time s-sitename s-ip cs-method cs-uri-stem cs-uri-query s-port cs-username c-ip "
          "cs-version cs(User-Agent) cs(Cookie) cs(Referer) sc-status sc-substatus "
          "sc-win32-status sc-bytes cs-bytes time-taken")

PAGES = [
    "/", "/default.htm", "/index.htm", "/products.htm", "/products/widgets.htm",
    "/products/gadgets.asp", "/support/faq.htm", "/support/contact.asp", "/news/2002.htm",
    "/about.htm", "/search.asp", "/cart/basket.asp", "/cart/checkout.asp", "/downloads.htm",
    "/downloads/setup.exe", "/downloads/manual.zip", "/login.asp", "/account/orders.asp",
]
IMAGES = [
    "/images/logo.gif", "/images/banner.jpg", "/images/spacer.gif", "/images/nav_home.gif",
    "/images/nav_products.gif", "/images/photo1.jpg", "/styles/site.css", "/scripts/menu.js",
    "/favicon.ico",
]
MISSING = [
    "/scripts/..%5c../winnt/system32/cmd.exe", "/_vti_bin/owssvr.dll", "/old/page.htm",
    "/images/missing.gif", "/default.ida", "/MSADC/root.exe", "/products/old_widget.htm",
]
AGENTS = [
    "Mozilla/4.0+(compatible;+MSIE+6.0;+Windows+NT+5.1;+SV1)",
    "Mozilla/4.0+(compatible;+MSIE+5.5;+Windows+98)",
    "Mozilla/5.0+(Windows;+U;+Windows+NT+5.1;+en-US;+rv:1.7.5)+Gecko/20041107+Firefox/1.0",
    "Mozilla/5.0+(Macintosh;+U;+PPC+Mac+OS+X;+en)+AppleWebKit/125.5.5+(KHTML,+like+Gecko)+Safari/125.12",
    "Opera/7.54+(Windows+NT+5.1;+U)++[en]",
    "Mozilla/4.0+(compatible;+MSIE+6.0;+Windows+NT+5.0;+.NET+CLR+1.1.4322)",
]
ROBOTS = [
    "Googlebot/2.1+(+http://www.google.com/bot.html)",
    "Mozilla/5.0+(compatible;+Yahoo!+Slurp;+http://help.yahoo.com/help/us/ysearch/slurp)",
    "msnbot/1.0+(+http://search.msn.com/msnbot.htm)",
]
ENGINES = [
    "http://www.google.com/search?q={q}&hl=en",
    "http://search.yahoo.com/search?p={q}",
    "http://search.msn.com/results.aspx?q={q}",
]
WORDS = ["widgets", "blue", "gadget", "cheap", "support", "manual", "download", "price"]


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--lines", type=int, default=1000, help="data lines to write")
    ap.add_argument("--seed", type=int, default=1, help="random seed (same seed, same file)")
    ap.add_argument("--clients", type=int, default=5000, help="size of the client address pool")
    ap.add_argument("--start", default="2002-05-24", help="first day, yyyy-mm-dd")
    ap.add_argument("--lines-per-day", type=int, default=150000,
                    help="data lines before the log moves on to the next day")
    ap.add_argument("--lf", action="store_true", help="end lines with LF only")
    args = ap.parse_args()

    rnd = random.Random(args.seed)
    eol = "\n" if args.lf else "\r\n"
    year, month, day = (int(x) for x in args.start.split("-"))

    clients = []
    for _ in range(max(1, args.clients)):
        ip = "%d.%d.%d.%d" % (rnd.randint(11, 223), rnd.randint(0, 255), rnd.randint(0, 255),
                              rnd.randint(1, 254))
        robot = rnd.random() < 0.04
        agent = rnd.choice(ROBOTS) if robot else rnd.choice(AGENTS)
        clients.append((ip, agent, robot))

    days_in_month = [31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31]

    def leap(y):
        return y % 4 == 0 and (y % 100 != 0 or y % 400 == 0)

    def next_day(y, m, d):
        dim = 29 if (m == 2 and leap(y)) else days_in_month[m - 1]
        d += 1
        if d > dim:
            d, m = 1, m + 1
            if m > 12:
                m, y = 1, y + 1
        return y, m, d

    out = sys.stdout
    buf = []
    per_day = max(1, args.lines_per_day)
    seconds_step = 86400.0 / per_day

    def header(first):
        if first:
            buf.append("#Software: Example Web Server 5.0" + eol)
            buf.append("#Version: 1.0" + eol)
        buf.append("#Date: %04d-%02d-%02d 00:00:00%s" % (year, month, day, eol))
        buf.append("#Fields: " + FIELDS + eol)

    header(True)
    t = 0.0
    in_day = 0
    for n in range(args.lines):
        if in_day == per_day:
            year, month, day = next_day(year, month, day)
            in_day, t = 0, 0.0
            header(False)
        in_day += 1
        t += rnd.random() * 2 * seconds_step
        if t >= 86399:
            t = 86399
        secs = int(t)
        ip, agent, robot = clients[min(len(clients) - 1, int(rnd.paretovariate(1.2)) - 1)
                                   if rnd.random() < 0.5 else rnd.randrange(len(clients))]
        status, sub, win32 = 200, 0, 0
        query = "-"
        referer = "-"
        method = "GET"
        r = rnd.random()
        if robot and r < 0.1:
            stem = "/robots.txt"
        elif r < 0.05:
            stem = rnd.choice(MISSING)
            status, win32 = 404, 2
        elif r < 0.55:
            stem = rnd.choice(IMAGES)
            referer = "http://www.example.com" + rnd.choice(PAGES)
            if rnd.random() < 0.15:
                status = 304
        else:
            stem = rnd.choice(PAGES)
            if stem.endswith(".asp") and rnd.random() < 0.4:
                query = "id=%d&cat=%s" % (rnd.randint(1, 9999), rnd.choice(WORDS))
            if stem == "/login.asp" and rnd.random() < 0.3:
                method = "POST"
            if rnd.random() < 0.2:
                q = "+".join(rnd.sample(WORDS, rnd.randint(1, 3)))
                referer = rnd.choice(ENGINES).format(q=q)
            elif rnd.random() < 0.5:
                referer = "http://www.example.com" + rnd.choice(PAGES)
        if robot:
            referer = "-"
        cookie = "-" if robot or rnd.random() < 0.3 else "ASPSESSIONID=%08X" % rnd.getrandbits(32)
        user = "-" if rnd.random() < 0.98 else "member%d" % rnd.randint(1, 50)
        sent = rnd.randint(200, 60000) if status == 200 else rnd.randint(150, 400)
        buf.append("%04d-%02d-%02d %02d:%02d:%02d W3SVC1 192.168.0.10 %s %s %s 80 %s %s HTTP/1.1 "
                   "%s %s %s %d %d %d %d %d %d%s" % (
                       year, month, day, secs // 3600, secs // 60 % 60, secs % 60, method, stem,
                       query, user, ip, agent, cookie, referer, status, sub, win32, sent,
                       rnd.randint(200, 900), rnd.randint(0, 1500), eol))
        if len(buf) >= 4096:
            out.write("".join(buf))
            buf.clear()
    out.write("".join(buf))
    out.flush()


if __name__ == "__main__":
    try:
        main()
    except BrokenPipeError:
        sys.exit(0)
