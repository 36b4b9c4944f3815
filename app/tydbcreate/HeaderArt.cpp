// Draws the header art and the etched rule; every length is a fraction of the area's height, so
// the drawing scales with the font and the screen's scale factor.
#include "HeaderArt.h"

#include <QPainter>
#include <QPainterPath>
#include <QPalette>

namespace window {
namespace {

// The art's colours: ink for the outlines, an accent for the table.
const QColor kInk(0x2b, 0x3a, 0x55);
const QColor kAccent(0x3c, 0x78, 0xd8);
const QColor kPaper(0xff, 0xff, 0xff);

}  // namespace

HeaderArt::HeaderArt(QWidget* parent) : QWidget(parent) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
}

QSize HeaderArt::sizeHint() const {
  const int h = fontMetrics().height() * 4;
  return {h * 2, h};
}

QSize HeaderArt::minimumSizeHint() const { return sizeHint(); }

void HeaderArt::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  // The drawing is 10 units high and 18.5 wide, as large as the area allows, at its right.
  const qreal unit = qMin(height() / 10.0, width() / 18.5);
  p.translate(width() - unit * 18.5, (height() - unit * 10.0) / 2);
  const qreal pen = qMax<qreal>(1.0, unit * 0.25);

  // The log page: a sheet with a folded corner, and its lines of text.
  const qreal px = unit * 1.0, py = unit * 1.5, pw = unit * 6.0, ph = unit * 7.0;
  const qreal fold = unit * 1.6;
  QPainterPath page;
  page.moveTo(px, py);
  page.lineTo(px + pw - fold, py);
  page.lineTo(px + pw, py + fold);
  page.lineTo(px + pw, py + ph);
  page.lineTo(px, py + ph);
  page.closeSubpath();
  p.setPen(QPen(kInk, pen));
  p.setBrush(kPaper);
  p.drawPath(page);
  p.drawLine(QPointF(px + pw - fold, py), QPointF(px + pw - fold, py + fold));
  p.drawLine(QPointF(px + pw - fold, py + fold), QPointF(px + pw, py + fold));
  p.setPen(QPen(kInk.lighter(160), pen));
  for (int i = 0; i < 5; ++i) {
    const qreal y = py + fold + unit * 0.9 + i * unit * 0.95;
    const qreal right = px + pw - unit * (i % 2 == 0 ? 0.8 : 2.0);
    p.drawLine(QPointF(px + unit * 0.8, y), QPointF(right, y));
  }

  // The arrow from the page to the table.
  const qreal ay = py + ph / 2;
  const qreal ax0 = px + pw + unit * 0.7, ax1 = px + pw + unit * 3.0;
  p.setPen(QPen(kInk, pen * 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.drawLine(QPointF(ax0, ay), QPointF(ax1, ay));
  p.drawLine(QPointF(ax1, ay), QPointF(ax1 - unit * 0.9, ay - unit * 0.8));
  p.drawLine(QPointF(ax1, ay), QPointF(ax1 - unit * 0.9, ay + unit * 0.8));

  // The table: a cylinder, the shape of a database, banded by lines.
  const qreal cx = ax1 + unit * 0.9, cw = unit * 7.0, cy = unit * 1.8, ch = unit * 6.6;
  const qreal rim = unit * 1.4;
  QPainterPath body;
  body.moveTo(cx, cy + rim / 2);
  body.lineTo(cx, cy + ch - rim / 2);
  body.arcTo(QRectF(cx, cy + ch - rim, cw, rim), 180, 180);
  body.lineTo(cx + cw, cy + rim / 2);
  body.arcTo(QRectF(cx, cy, cw, rim), 0, 180);
  p.setPen(QPen(kInk, pen));
  p.setBrush(kAccent);
  p.drawPath(body);
  p.setBrush(kAccent.lighter(140));
  p.drawEllipse(QRectF(cx, cy, cw, rim));
  p.setPen(QPen(kPaper, pen));
  p.setBrush(Qt::NoBrush);
  for (int i = 1; i <= 2; ++i) {
    const qreal y = cy + i * ch / 3;
    p.drawArc(QRectF(cx, y - rim / 2, cw, rim), 180 * 16, 180 * 16);
  }
}

EtchedLine::EtchedLine(QWidget* parent) : QWidget(parent) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize EtchedLine::sizeHint() const { return {10, 2}; }

void EtchedLine::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setPen(palette().color(QPalette::Dark));
  p.drawLine(0, 0, width(), 0);
  p.setPen(palette().color(QPalette::Light));
  p.drawLine(0, 1, width(), 1);
}

}  // namespace window
