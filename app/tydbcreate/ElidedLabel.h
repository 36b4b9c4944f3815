// A one-line caption that never widens the window: a text longer than the label is shown with
// its middle left out ("/srv/logs/…/ex261115.log"), while text() keeps the whole caption.
#pragma once

#include <QLabel>

namespace window {

class ElidedLabel final : public QLabel {
 public:
  explicit ElidedLabel(QWidget* parent = nullptr);
  QSize minimumSizeHint() const override;
  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace window
