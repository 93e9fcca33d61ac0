// SPDX-License-Identifier: GPL-3.0-or-later
// The main window without a toolkit: its title, its layout keys, the recent
// files, and every menu as data (entry text with its accelerator, hint,
// enabling and tick rules, the command it runs). The window only builds
// widgets from this and forwards clicks; a test asks the same table.
//
// Owning thread only.
//
//   app::WindowPresenter presenter({.app = velomar, .view = view, ...});
//   for (const app::MenuCommand& menu : presenter.Menus()) build(menu);
//   window.setTitle(presenter.Title());
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/link/host_link.h"
#include "app/render/render_settings.h"

class VLComp;

namespace img {
class Cache;
}

namespace app::link {
class HostLink;
class HostLauncher;
}  // namespace app::link

namespace app {

class Clipboard;
class MaskEditor;
class ProfileStore;
class VLView;
class Velomar;

// The title rule: " - Velomar" with no project; otherwise the project's file
// title, "(Untitled)" without a file, then " *" when modified.
std::string WindowTitle(const VLComp& comp);

inline constexpr const char* kLayoutSection = "Layout";

// The bars and the status bar, as the section "Layout" keeps them. Values
// are taken as they stand: a size that does not fit is not corrected here.
struct LayoutSettings {
  bool rightBarVisible = true;
  bool bottomBarVisible = true;
  int64_t rightBarSize = 200;
  int64_t bottomBarSize = 200;
  bool statusBar = true;
  friend bool operator==(const LayoutSettings&, const LayoutSettings&) = default;
};
LayoutSettings ReadLayout(ProfileStore& profile);
void WriteLayout(ProfileStore& profile, const LayoutSettings& layout);

// The recent-file list: "File1" (newest) to "File4" in "Recent File List".
inline constexpr const char* kRecentSection = "Recent File List";
std::vector<std::string> ReadRecentFiles(ProfileStore& profile);
void WriteRecentFiles(ProfileStore& profile, const std::vector<std::string>& files);

// One menu entry, or a pop-up when `items` or `fill` is set. `text` is the
// entry as the menu bar holds it: "&Save\tCtrl+S", the accelerator behind
// the tab.
struct MenuCommand {
  std::string text;
  std::string hint;
  std::function<void()> run;
  std::function<bool()> enabled;                   // empty: always enabled
  std::function<bool()> checked;                   // empty: no tick mark
  std::function<std::string()> label;              // empty: `text` stays
  std::vector<MenuCommand> items;                  // a fixed pop-up
  std::function<std::vector<MenuCommand>()> fill;  // a pop-up made at each opening
  bool separator = false;
  // Enabled and disabled as a group with the project (pop-ups that the
  // update rules cannot reach).
  bool projectGroup = false;

  bool IsEnabled() const { return !enabled || enabled(); }
  bool IsCheckable() const { return bool(checked); }
  bool IsPopup() const { return !items.empty() || bool(fill); }
  // The text before the tab and the accelerator after it.
  std::string Caption() const;
  std::string Accelerator() const;
};

// What only the window can do; each may be empty (the entry is then disabled).
struct WindowActions {
  std::function<void()> zoomIn, zoomOut, fitOnScreen, actualPixels;
  std::function<void()> tracklineZoomIn, tracklineZoomOut, tracklineFit;
  // Asks for a frame number ("Go to Frame", "Frame #"); nothing on cancel.
  std::function<std::optional<std::string>()> askFrame;
  // A colour dialog from `rgb` (red in the low byte); nothing on cancel.
  std::function<std::optional<uint32_t>(uint32_t rgb)> chooseColour;
  std::function<void()> about, manual, exit;
  // The layout changed (a bar or the status bar shown or hidden).
  std::function<void()> layoutChanged;
  // Runs the owning thread's pending events while a render composites.
  std::function<void()> pump;
  // A render starts (false) and ends (true): the window is held meanwhile.
  std::function<void(bool)> enableWindow;
  // The hint language changed: the property grid builds its rows again.
  std::function<void()> hintLanguageChanged;
};

struct WindowPorts {
  Velomar& app;
  VLView& view;
  ProfileStore& profile;
  img::Cache& cache;
  Clipboard* clipboard = nullptr;
  link::HostLink* link = nullptr;
  link::HostLauncher* host = nullptr;
  // Edit Mask paints through it; null: the segment is only marked edited.
  MaskEditor* editor = nullptr;
  WindowActions actions = {};
  // The workspace colour as a stored colour (blue in the low byte): the
  // "System" background.
  uint32_t workspace_colour = 0xABABAB;
};

class WindowPresenter {
 public:
  // Reads the layout and the recent files, installs the composition's title
  // and menu-group hooks.
  explicit WindowPresenter(WindowPorts ports);
  // Writes the layout and the recent files back; removes the hooks.
  ~WindowPresenter();
  WindowPresenter(const WindowPresenter&) = delete;
  WindowPresenter& operator=(const WindowPresenter&) = delete;

  std::string Title() const;
  Velomar& App() { return ports_.app; }
  VLView& View() { return ports_.view; }
  // What the Info panel shows: frame, length, size, rate, active object.
  std::string InfoText() const;
  // Told after every title change and menu-group switch.
  std::function<void()> onTitleChanged;
  std::function<void(bool)> onGroupEnabled;

  LayoutSettings& Layout() { return layout_; }
  // The menu bar: "&File" to "&Help".
  std::vector<MenuCommand> Menus();
  bool ProjectGroupEnabled() const { return groupEnabled_; }

  // The close request: Close Project, then true when no project remains.
  bool CloseRequest();
  // Edit mode: the active segment goes into the mask editor.
  bool CanEditMask() const;
  void SetEditMode(bool on);
  // File > Render; false when the render did not start.
  bool Render(bool overlay_only);
  // The trackline's zoom, when the window has made it.
  void SetTracklineZoom(std::function<void()> in,
                        std::function<void()> out,
                        std::function<void()> fit);
  // Publishes the project's state for the link's server (after changes).
  void Publish();
  // Asks the plug-in what it can do now; the After Effects entries read the
  // answer until the next call (each query is a round trip on the socket).
  void RefreshLink();

 private:
  std::vector<MenuCommand> FileMenu();
  std::vector<MenuCommand> PreferencesMenu();
  std::vector<MenuCommand> EditMenu();
  std::vector<MenuCommand> SegmentMenu();
  std::vector<MenuCommand> DisplayMenu();
  std::vector<MenuCommand> TimeMenu();
  std::vector<MenuCommand> TracklineMenu();
  std::vector<MenuCommand> AfterEffectsMenu();
  std::vector<MenuCommand> ViewMenu();
  std::vector<MenuCommand> HelpMenu();
  // A command of the application run through its report loop.
  std::function<void()> Guarded(std::function<void()> command);
  void SetTime(int32_t frame);
  void ChangeStyle(const std::function<void(struct DisplayStyle&)>& change);

  WindowPorts ports_;
  LayoutSettings layout_;
  AviCoderList coders_;
  std::optional<link::LinkCommands> link_ui_;
  bool groupEnabled_ = false;
};

}  // namespace app
