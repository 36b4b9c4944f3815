// The window's widgets as the scan sees them: captions, the file grid, the progress bar, message
// boxes and the yield to the window system. The Qt window, the console front-end and the tests
// each implement `Frontend`; the core never talks to a window in any other way.
//
// The grid and the progress bar are kept here as plain models with the rules of the original
// widgets (a progress value outside Min..Max is refused, the grid's first row is its header), so
// every front-end shows the same state and the scan code can read back what it set.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// The captions the scan writes. Names follow the window's own controls.
enum class Label {
  Note,     // lblNote: "Initializing....", "Scan Completed."
  Site,     // Label2: "Scanning Site: " + name
  Prog,     // lblProg: the file being read, "Scanning Log File Directory"
  Prog2,    // lblProg2: archive progress, "Removing Tempory Files"
  PDNS,     // lblPDNS: caption of the pending-DNS figure
  DNS,      // lblDNS: the pending-DNS figure
  TabHelp,  // lblTabHelp
};

enum class MsgIcon { Critical, Question, Exclamation, Information };
enum class MsgButtons { Ok, YesNo, YesNoCancel };
enum class MsgResult { Ok, Yes, No, Cancel };

// The progress bar's state. Setting a value outside Min..Max, or a Max below Min, is refused
// (returns false) and leaves the bar as it was, as the original widget raised an error there.
class ProgressBar {
 public:
  double Min() const { return min_; }
  double Max() const { return max_; }
  double Value() const { return value_; }
  bool Visible() const { return visible_; }

  bool SetMin(double v) {
    if (v > max_) return false;
    min_ = v;
    if (value_ < min_) value_ = min_;
    return true;
  }
  bool SetMax(double v) {
    if (v < min_) return false;
    max_ = v;
    if (value_ > max_) value_ = max_;
    return true;
  }
  bool SetValue(double v) {
    if (v < min_ || v > max_) return false;
    value_ = v;
    return true;
  }
  void SetVisible(bool v) { visible_ = v; }

 private:
  double min_ = 0;
  double max_ = 100;
  double value_ = 0;
  bool visible_ = true;
};

// The file grid: row 0 is the header; each data row has four cells (number, modified date, size,
// file name) and carries the index of its log-file entry as row data.
struct GridRow {
  std::array<std::string, 4> cells;
  long rowData = 0;
};

class Grid {
 public:
  Grid() { rows_.resize(1); }
  // Number of rows including the header row.
  int RowCount() const { return static_cast<int>(rows_.size()); }
  // REQUIRES: n >= 1. Shrinking drops rows from the end; growing adds blank rows.
  void SetRowCount(int n) { rows_.resize(n < 1 ? 1 : static_cast<size_t>(n)); }
  GridRow& Row(int r) { return rows_.at(static_cast<size_t>(r)); }
  const GridRow& Row(int r) const { return rows_.at(static_cast<size_t>(r)); }
  int SelectedRow() const { return selected_; }
  void Select(int r) { selected_ = r; }
  bool Visible() const { return visible_; }
  void SetVisible(bool v) { visible_ = v; }

 private:
  std::vector<GridRow> rows_;
  int selected_ = 0;
  bool visible_ = true;
};

// What the core needs of a window. All calls come from the scan's own thread.
class Frontend {
 public:
  virtual ~Frontend() = default;

  // Sets a caption and repaints it at once.
  virtual void SetCaption(Label label, std::string_view text) = 0;
  virtual void ShowLabel(Label label, bool visible) = 0;

  // The models; after changing one, the core calls the matching *Changed so the front-end can
  // redraw (a front-end may also redraw only at Yield).
  virtual Grid& FileGrid() = 0;
  virtual ProgressBar& Progress() = 0;
  virtual void GridChanged() {}
  virtual void ProgressChanged() {}

  // The Start button: switched off for good when a scan begins (a window without one ignores it).
  virtual void SetStartEnabled(bool enabled) {}
  // The start was confirmed: a window with tab panels brings its progress panel to the front.
  virtual void ShowProgressTab() {}

  // Shows a message box titled `title` and waits for the answer: Ok for MsgButtons::Ok; Yes or No
  // for YesNo; Yes, No or Cancel for YesNoCancel (closing the box without a button counts as No
  // for YesNo and as Cancel for YesNoCancel).
  virtual MsgResult MessageBox(std::string_view text, MsgIcon icon, MsgButtons buttons,
                               std::string_view title) = 0;

  // Lets the window system run: painting, the Cancel button, DNS answers. A front-end reports a
  // cancel the user confirmed by returning false; the scan then closes the database and ends.
  virtual bool Yield() = 0;
};

}  // namespace platform
