// The wizard's header art: two drawing areas made of lines and a shape. `HeaderArt` is the band
// at the top of the window (a log page turning into a table, drawn in lines, beside the window's
// title and note); `EtchedLine` is the engraved rule above the buttons. Both size their drawing
// to the area they are given, so the art follows the window when it is resized or scaled.
#pragma once

#include <QWidget>

namespace window {

class HeaderArt final : public QWidget {
 public:
  explicit HeaderArt(QWidget* parent = nullptr);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

class EtchedLine final : public QWidget {
 public:
  explicit EtchedLine(QWidget* parent = nullptr);
  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace window
