// Paints the caption shortened in the middle to the label's width.
#include "ElidedLabel.h"

#include <QPainter>

namespace window {

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

QSize ElidedLabel::minimumSizeHint() const { return {0, fontMetrics().height()}; }

QSize ElidedLabel::sizeHint() const {
  return {fontMetrics().horizontalAdvance(text()), fontMetrics().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*) {
  QPainter p(this);
  const QRect r = contentsRect();
  p.setPen(palette().color(foregroundRole()));
  p.drawText(r, Qt::AlignLeft | Qt::AlignVCenter,
             fontMetrics().elidedText(text(), Qt::ElideMiddle, r.width()));
}

}  // namespace window
