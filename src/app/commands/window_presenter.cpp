// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/window_presenter.h"

#include <algorithm>
#include <filesystem>

#include "app/commands/application.h"
#include "app/commands/command_rules.h"
#include "app/commands/preferences_menu.h"
#include "app/commands/transform_commands.h"
#include "app/edit/mask_editor.h"
#include "app/link/host_launcher.h"
#include "app/link/host_link.h"
#include "app/link/link_rules.h"
#include "app/model/comp.h"
#include "app/model/properties.h"
#include "app/ports.h"
#include "app/preview/view.h"
#include "app/render/render_command.h"

// The menu table names only the fields an entry uses; the rest keep their
// defaults on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace app {

std::string WindowTitle(const VLComp& comp) {
  std::string title;
  if (!comp.IsEmpty()) {
    const std::string& path = comp.GetProjectPath();
    title = path.empty() ? "(Untitled)" : std::filesystem::path(path).stem().string();
    if (comp.GetActionQueue().IsModified()) title += " *";
  }
  return title + " - Velomar";
}

LayoutSettings ReadLayout(ProfileStore& profile) {
  LayoutSettings layout;
  layout.rightBarVisible = profile.get_int(kLayoutSection, "RightBarVisible", 1) != 0;
  layout.bottomBarVisible = profile.get_int(kLayoutSection, "BottomBarVisible", 1) != 0;
  layout.rightBarSize = profile.get_int(kLayoutSection, "RightBarSize", 200);
  layout.bottomBarSize = profile.get_int(kLayoutSection, "BottomBarSize", 200);
  layout.statusBar = profile.get_int(kLayoutSection, "StatusBar", 1) != 0;
  return layout;
}

void WriteLayout(ProfileStore& profile, const LayoutSettings& layout) {
  profile.set_int(kLayoutSection, "RightBarVisible", layout.rightBarVisible ? 1 : 0);
  profile.set_int(kLayoutSection, "BottomBarVisible", layout.bottomBarVisible ? 1 : 0);
  profile.set_int(kLayoutSection, "RightBarSize", layout.rightBarSize);
  profile.set_int(kLayoutSection, "BottomBarSize", layout.bottomBarSize);
  profile.set_int(kLayoutSection, "StatusBar", layout.statusBar ? 1 : 0);
}

std::vector<std::string> ReadRecentFiles(ProfileStore& profile) {
  std::vector<std::string> files;
  for (int i = 1; i <= 4; ++i) {
    std::string file = profile.get_string(kRecentSection, "File" + std::to_string(i), "");
    if (!file.empty()) files.push_back(std::move(file));
  }
  return files;
}

void WriteRecentFiles(ProfileStore& profile, const std::vector<std::string>& files) {
  for (size_t i = 0; i < 4; ++i)
    profile.set_string(kRecentSection, "File" + std::to_string(i + 1),
                       i < files.size() ? files[i] : std::string());
}

std::string MenuCommand::Caption() const {
  return text.substr(0, text.find('\t'));
}

std::string MenuCommand::Accelerator() const {
  const size_t tab = text.find('\t');
  return tab == std::string::npos ? std::string() : text.substr(tab + 1);
}

namespace {

MenuCommand Separator() {
  MenuCommand m;
  m.separator = true;
  return m;
}

MenuCommand Popup(std::string text, std::vector<MenuCommand> items, bool group = false) {
  MenuCommand m;
  m.text = std::move(text);
  m.items = std::move(items);
  m.projectGroup = group;
  return m;
}

// Colours as the style stores them: blue in the low byte.
struct NamedColour {
  const char* name;
  uint32_t colour;
};
constexpr NamedColour kColours[] = {{"Black", 0x000000},
                                    {"Red", 0xFF0000},
                                    {"Green", 0x00FF00},
                                    {"Blue", 0x0000FF},
                                    {"White", 0xFFFFFF}};
constexpr uint32_t kOpacities[] = {100, 250, 500, 750, 1000};
constexpr uint32_t kFrameRates[] = {10, 25, 30, 50};

}  // namespace

WindowPresenter::WindowPresenter(WindowPorts ports) : ports_(std::move(ports)) {
  layout_ = ReadLayout(ports_.profile);
  ports_.app.SetRecentFiles(ReadRecentFiles(ports_.profile));
  VLComp& comp = ports_.app.GetComposition();
  groupEnabled_ = !comp.IsEmpty();
  comp.hooks.updateTitle = [this] {
    Publish();
    if (onTitleChanged) onTitleChanged();
  };
  comp.hooks.enablePopupMenus = [this](bool enable) {
    groupEnabled_ = enable;
    if (onGroupEnabled) onGroupEnabled(enable);
  };
  comp.GetActionQueue().onMenusChanged = [this](const UndoMenus&) {
    if (onTitleChanged) onTitleChanged();
  };
}

WindowPresenter::~WindowPresenter() {
  VLComp& comp = ports_.app.GetComposition();
  comp.hooks.updateTitle = nullptr;
  comp.hooks.enablePopupMenus = nullptr;
  comp.GetActionQueue().onMenusChanged = nullptr;
  WriteLayout(ports_.profile, layout_);
  WriteRecentFiles(ports_.profile, ports_.app.GetRecentFiles());
}

std::string WindowPresenter::Title() const {
  return WindowTitle(ports_.app.GetComposition());
}

std::string WindowPresenter::InfoText() const {
  const VLComp& comp = ports_.app.GetComposition();
  if (comp.IsEmpty()) return "No project";
  const int32_t start = comp.GetStartFrame();
  const My::Span area = comp.GetWorkArea();
  std::string text = "Frame " + comp.GetCurrentTimeText() + " of " + std::to_string(start) + "-" +
                     std::to_string(start + comp.GetLength() - 1) + "\nWork area " +
                     std::to_string(start + area.first) + "-" +
                     std::to_string(start + area.last - 1) + "\n" +
                     std::to_string(comp.GetWidth()) + " x " + std::to_string(comp.GetHeight()) +
                     ", " + std::to_string(comp.GetFramerate()) + " fps";
  const int32_t active = comp.GetActiveSegment();
  if (active >= 0) {
    const VLSegment& segment = comp.GetSegmentObject(active);
    const My::Span data = segment.GetDataSpan();
    text += "\nSegment " + std::to_string(active + 1) + " of " +
            std::to_string(comp.GetSegmentCount()) + (segment.IsProcessing() ? ", tracking" : "");
    if (data.last > data.first)
      text += "\nTracked " + std::to_string(start + data.first) + "-" +
              std::to_string(start + data.last - 1);
  } else if (comp.IsOverlayActive()) {
    text += "\nOverlay";
  }
  return text;
}

void WindowPresenter::SetTracklineZoom(std::function<void()> in,
                                       std::function<void()> out,
                                       std::function<void()> fit) {
  ports_.actions.tracklineZoomIn = std::move(in);
  ports_.actions.tracklineZoomOut = std::move(out);
  ports_.actions.tracklineFit = std::move(fit);
}

void WindowPresenter::RefreshLink() {
  if (ports_.link) link_ui_ = ports_.link->Refresh();
}

void WindowPresenter::Publish() {
  if (ports_.link) ports_.link->Publish();
}

std::function<void()> WindowPresenter::Guarded(std::function<void()> command) {
  return [this, command = std::move(command)] {
    ports_.app.Run(command);
    // The core may have ended an edit (Process, a delete, Close).
    if (ports_.editor) ports_.editor->Sync();
    Publish();
  };
}

bool WindowPresenter::CloseRequest() {
  Velomar& app = ports_.app;
  if (app.IsProjectOpen()) app.Run([&] { app.CloseProject(); });
  return !app.IsProjectOpen();
}

bool WindowPresenter::CanEditMask() const {
  const CommandSnapshot s = ports_.app.GetCommandState();
  return s.mainWindowEnabled && s.active() && !s.active()->processing;
}

void WindowPresenter::SetEditMode(bool on) {
  VLComp& comp = ports_.app.GetComposition();
  if (on && !CanEditMask()) return;
  if (MaskEditor* editor = ports_.editor) {
    editor->End();
    if (on) {
      VLSegment& segment = comp.GetSegmentObject(comp.GetActiveSegment());
      // The mask is painted on the key frame: show it.
      comp.SetCurrentTime(segment.GetInterface().GetOrigin());
      editor->Begin(segment);
    }
    return;
  }
  if (VLSegment* edited = comp.GetEditedSegment()) {
    edited->GetInterface().EndEdit();
    comp.SetEditedSegment(nullptr);
  }
  if (on) {
    VLSegment& segment = comp.GetSegmentObject(comp.GetActiveSegment());
    // The mask is painted on the key frame: show it.
    comp.SetCurrentTime(segment.GetInterface().GetOrigin());
    segment.GetInterface().BeginEdit();
    comp.SetEditedSegment(&segment);
  }
  ports_.view.set_view_mode(on ? 1 : 0);
}

void WindowPresenter::SetTime(int32_t frame) {
  VLComp& comp = ports_.app.GetComposition();
  if (!comp.IsEmpty()) comp.SetCurrentTime(std::clamp(frame, 0, comp.GetLength() - 1));
}

void WindowPresenter::ChangeStyle(const std::function<void(DisplayStyle&)>& change) {
  DisplayStyle style = ports_.view.GetDisplayStyle();
  change(style);
  ports_.view.SetDisplayStyle(style);
}

bool WindowPresenter::Render(bool overlay_only) {
  Velomar& app = ports_.app;
  bool enabled = true;
  RenderPorts ports{.comp = app.GetComposition(),
                    .view = ports_.view,
                    .dialogs = app.GetDialogs(),
                    .profile = ports_.profile,
                    .preferences = app.GetPreferences(),
                    .operations = app.GetOperations(),
                    .coders = coders_,
                    .cache = ports_.cache,
                    .filter = app.GetAviFilter(),
                    .pump = ports_.actions.pump ? ports_.actions.pump : [] {},
                    .window_enabled = &enabled};
  RenderOutcome outcome;
  if (ports_.actions.enableWindow) ports_.actions.enableWindow(false);
  app.mainWindowEnabled = false;
  Publish();
  app.Run([&] { outcome = app::Render(ports, overlay_only); });
  app.mainWindowEnabled = true;
  if (ports_.actions.enableWindow) ports_.actions.enableWindow(true);
  Publish();
  return outcome.started;
}

std::vector<MenuCommand> WindowPresenter::Menus() {
  return {Popup("&File", FileMenu()),
          Popup("&Edit", EditMenu()),
          Popup("&Segment", SegmentMenu()),
          Popup("&Display", DisplayMenu()),
          Popup("&Time", TimeMenu()),
          Popup("Track&line", TracklineMenu()),
          Popup("&After Effects", AfterEffectsMenu()),
          Popup("&View", ViewMenu()),
          Popup("&Help", HelpMenu())};
}

std::vector<MenuCommand> WindowPresenter::FileMenu() {
  Velomar& app = ports_.app;
  auto rule = [&app](bool (*can)(const CommandSnapshot&)) {
    return [&app, can] { return can(app.GetCommandState()); };
  };
  std::vector<MenuCommand> m;
  m.push_back({.text = "&New Project...\tCtrl+N",
               .hint = "Creates a new project from an image sequence",
               .run = Guarded([&app] { app.OnNewProject(); }),
               .enabled = rule(CanNewProject)});
  m.push_back({.text = "&Open...\tCtrl+O",
               .hint = "Opens an existing project",
               .run = Guarded([&app] { app.OnOpen(); }),
               .enabled = rule(CanOpen)});
  m.push_back({.text = "&Save\tCtrl+S",
               .hint = "Saves the project",
               .run = Guarded([&app] { app.OnSave(); }),
               .enabled = rule(CanSave)});
  m.push_back({.text = "Save &As...",
               .hint = "Saves the project under a new name",
               .run = Guarded([&app] { app.OnSaveAs(); }),
               .enabled = rule(CanSaveAs)});
  m.push_back({.text = "&Close Project",
               .hint = "Closes the project",
               .run = Guarded([&app] { app.CloseProject(); }),
               .enabled = rule(CanCloseProject)});
  m.push_back(Separator());
  m.push_back({.text = "Import Overlay...",
               .hint = "Imports an image or an image sequence as overlay",
               .run = Guarded([&app] { app.OnImportOverlay(); }),
               .enabled = rule(CanImportOverlay)});
  MenuCommand render =
      Popup("Render",
            {{.text = "Composition...",
              .hint = "Renders the work area as the preview shows it",
              .run = [this] { Render(false); },
              .enabled = [&app] { return app.IsProjectOpen() && app.mainWindowEnabled; }},
             {.text = "Overlay...",
              .hint = "Renders the moving overlay alone over a transparent background",
              .run = [this] { Render(true); },
              .enabled = [&app] { return app.IsProjectOpen() && app.mainWindowEnabled; }}},
            true);
  m.push_back(std::move(render));
  m.push_back(Separator());
  m.push_back({.text = "Copy Transforms",
               .hint = "Copies the overlay's motion as keyframe text into the clipboard",
               .run = Guarded([this] {
                 if (ports_.clipboard)
                   CopyTransforms(ports_.app.GetComposition(), *ports_.clipboard, ports_.host);
               }),
               .enabled = [this, &app] {
                 return ports_.clipboard && CanCopyTransforms(app.GetCommandState());
               }});
  m.push_back({.text = "Export Transforms...",
               .hint = "Writes the overlay's motion as keyframe text into a file",
               .run = Guarded([&app] { ExportTransforms(app.GetComposition(), app.GetDialogs()); }),
               .enabled = rule(CanExportTransforms)});
  m.push_back(Separator());
  m.push_back(Popup("&Preferences", PreferencesMenu()));
  MenuCommand recent;
  recent.text = "Recent File";
  recent.fill = [this, &app] {
    std::vector<MenuCommand> items;
    int n = 1;
    for (const std::string& path : app.GetRecentFiles()) {
      std::string text = "&";
      text += std::to_string(n++);
      text += ' ';
      text += path;
      items.push_back({.text = std::move(text),
                       .hint = "Opens this project",
                       .run = Guarded([&app, path] { app.OpenDocumentFile(path); })});
    }
    if (items.empty()) items.push_back({.text = "Recent File", .enabled = [] { return false; }});
    return items;
  };
  m.push_back(std::move(recent));
  m.push_back(Separator());
  m.push_back({.text = "E&xit",
               .hint = "Closes the project and quits Velomar",
               .run =
                   [this] {
                     if (ports_.actions.exit) ports_.actions.exit();
                   },
               .enabled = rule(CanExit)});
  return m;
}

std::vector<MenuCommand> WindowPresenter::PreferencesMenu() {
  AppPreferences& p = ports_.app.GetPreferences();
  img::Cache& cache = ports_.cache;
  std::vector<MenuCommand> cacheSize;
  const char* cacheLabels[] = {"25% of RAM", "50% of RAM", "75% of RAM"};
  for (size_t i = 0; i < 3; ++i) {
    const float choice = kCacheSizeChoices[i];
    cacheSize.push_back({.text = cacheLabels[i],
                         .hint = "Sets the share of memory kept for decoded frames",
                         .run = [&p, &cache, choice] { ChooseCacheSize(p, choice, cache); },
                         .checked = [&p, choice] { return IsCacheSizeTicked(p, choice); }});
  }
  cacheSize.push_back(
      {.text = "Purge", .hint = "Empties the frame cache", .run = [&cache] { PurgeCache(cache); }});

  std::vector<MenuCommand> format;
  MenuCommand avi;
  avi.text = "AVI";
  avi.fill = [this, &p] {
    std::vector<MenuCommand> items;
    std::vector<img::avi::AviCoderInfo> list;
    try {
      list = coders_.coders();
    } catch (const std::exception&) {
      // No coder can be listed: the menu says so below.
    }
    for (const auto& coder : list) {
      items.push_back({.text = AviMenuText(coder),
                       .hint = "Renders into one AVI file with this coder",
                       .run = Guarded([this, &p, coder] {
                         ChooseAviCoder(p, ports_.profile, coder,
                                        ReadAviCoderState(ports_.profile, coder.name));
                       }),
                       .checked = [this, &p, name = coder.name] {
                         return IsAviTicked(p) && ReadAviCoder(ports_.profile) == name;
                       }});
    }
    if (items.empty()) items.push_back({.text = "stub", .enabled = [] { return false; }});
    return items;
  };
  avi.checked = [&p] { return IsAviTicked(p); };
  format.push_back(std::move(avi));
  for (const RenderingFormatChoice& choice : RenderingFormatChoices()) {
    format.push_back({.text = choice.label,
                      .hint = "Renders into a sequence of image files of this format",
                      .run = [&p, &choice] { ChooseRenderingFormat(p, choice); },
                      .checked = [&p, &choice] { return IsRenderingFormatTicked(p, choice); }});
  }
  format.push_back(Separator());
  format.push_back({.text = "Alpha",
                    .hint = "Writes an alpha channel into rendered files",
                    .run = [&p] { ToggleRenderingAlpha(p); },
                    .enabled = [&p] { return IsRenderingAlphaEnabled(p); },
                    .checked = [&p] { return IsRenderingAlphaTicked(p); }});
  std::vector<MenuCommand> field;
  for (const FieldChoice& choice : FieldChoices()) {
    const int value = choice.field;
    field.push_back({.text = choice.label,
                     .hint = "Sets the field order of rendered frames",
                     .run = [&p, value] { p.renderingField = value; },
                     .checked = [&p, value] { return p.renderingField == value; }});
  }
  format.push_back(Popup("Field", std::move(field)));

  const char* corners[] = {"Top-Left Corner", "Top-Right Corner", "Bottom-Left Corner",
                           "Bottom-Right Corner"};
  std::vector<MenuCommand> alignment;
  for (size_t i = 0; i < 4; ++i) {
    const int value = kOverlayAlignmentChoices[i];
    alignment.push_back({.text = corners[i],
                         .hint = "Aligns a newly imported overlay to this corner",
                         .run =
                             [this, &p, value] {
                               p.overlayAlignment = value;
                               ports_.app.GetComposition().defaultAlignment = Alignment(value);
                             },
                         .checked = [&p, value] { return p.overlayAlignment == value; }});
  }
  const char* alphas[] = {"Straight", "Premultiplied", "Inverted Straight",
                          "Inverted Premultiplied"};
  std::vector<MenuCommand> alpha;
  for (size_t i = 0; i < 4; ++i) {
    const int value = kOverlayAlphaChoices[i];
    alpha.push_back({.text = alphas[i],
                     .hint = "Interprets the alpha of a newly imported overlay so",
                     .run =
                         [this, &p, value] {
                           p.overlayAlpha = value;
                           ports_.app.GetComposition().defaultAlpha = AlphaInterpretation(value);
                         },
                     .checked = [&p, value] { return p.overlayAlpha == value; }});
  }
  std::vector<MenuCommand> language;
  for (const HintLanguageChoice& choice : HintLanguageChoices()) {
    const int value = choice.language;
    language.push_back({.text = choice.label,
                        .hint = "Sets the language of property hints",
                        .run =
                            [this, &p, value] {
                              p.hintLanguage = value;
                              SetHintLanguage(value);
                              ports_.app.GetComposition().RefreshPanel();
                              if (ports_.actions.hintLanguageChanged)
                                ports_.actions.hintLanguageChanged();
                            },
                        .checked = [&p, value] { return p.hintLanguage == value; }});
  }
  return {Popup("Cache Size", std::move(cacheSize)), Popup("Rendering Format", std::move(format)),
          Popup("Overlay Alignment", std::move(alignment)),
          Popup("Overlay Alpha", std::move(alpha)),
          Popup("Property Hint Language", std::move(language))};
}

std::vector<MenuCommand> WindowPresenter::EditMenu() {
  Velomar& app = ports_.app;
  VLActionQueue& queue = app.GetComposition().GetActionQueue();
  auto watch = [this, &queue](bool undo) {
    return [this, &queue, undo] {
      const UndoMenus& menus = queue.GetMenus();
      const std::vector<std::string>& names = undo ? menus.undoWatch : menus.redoWatch;
      std::vector<MenuCommand> items;
      const bool empty = undo ? !queue.CanUndo() : !queue.CanRedo();
      for (size_t i = 0; i < names.size(); ++i) {
        items.push_back({.text = names[i],
                         .hint = undo ? "Undoes every action down to this one"
                                      : "Redoes every action up to this one",
                         .run = Guarded([this, undo, i] {
                           for (size_t k = 0; k <= i; ++k)
                             undo ? ports_.app.OnUndo() : ports_.app.OnRedo();
                         }),
                         .enabled = [empty] { return !empty; }});
      }
      return items;
    };
  };
  std::vector<MenuCommand> m;
  m.push_back({.text = "&Undo\tCtrl+Z",
               .hint = "Undoes the last action",
               .run = Guarded([&app] { app.OnUndo(); }),
               .enabled = [&app] { return CanUndo(app.GetCommandState()); },
               .label = [&queue] { return queue.GetMenus().undo.text; }});
  m.push_back({.text = "Redo\tShift+Ctrl+Z",
               .hint = "Redoes the previously undone action",
               .run = Guarded([&app] { app.OnRedo(); }),
               .enabled = [&app] { return CanRedo(app.GetCommandState()); },
               .label = [&queue] { return queue.GetMenus().redo.text; }});
  m.push_back(Separator());
  // Velomar keeps no objects of its own on the clipboard: these stay off.
  for (const char* text : {"Cu&t\tCtrl+X", "&Copy\tCtrl+C", "&Paste\tCtrl+V"})
    m.push_back({.text = text, .enabled = [] { return false; }});
  m.push_back({.text = "Clear\tDel",
               .hint = "Deletes the active segment or clears the active overlay",
               .run = Guarded([&app] { app.OnClear(); }),
               .enabled = [&app] { return CanClear(app.GetCommandState()); }});
  m.push_back(Separator());
  MenuCommand undoWatch{.text = "Undo Watch", .fill = watch(true), .projectGroup = true};
  MenuCommand redoWatch{.text = "Redo Watch", .fill = watch(false), .projectGroup = true};
  m.push_back(std::move(undoWatch));
  m.push_back(std::move(redoWatch));
  return m;
}

std::vector<MenuCommand> WindowPresenter::SegmentMenu() {
  Velomar& app = ports_.app;
  auto rule = [&app](bool (*can)(const CommandSnapshot&)) {
    return [&app, can] { return can(app.GetCommandState()); };
  };
  auto leaveEdit = [this](std::function<void()> command) {
    return Guarded([this, command = std::move(command)] {
      if (ports_.view.view_mode() != 0) SetEditMode(false);
      command();
    });
  };
  std::vector<MenuCommand> m;
  m.push_back({.text = "&New Segment\tCtrl+Shift+N",
               .hint = "Creates new segment with key on the current frame and default settings",
               .run = Guarded([&app] { app.OnNewSegment(); }),
               .enabled = rule(CanNewSegment)});
  m.push_back({.text = "New from Active",
               .hint = "Creates new segment with key on the current frame and the settings of "
                       "the active one",
               .run = Guarded([&app] { app.OnNewFromActive(); }),
               .enabled = rule(CanNewFromActive)});
  m.push_back(Separator());
  m.push_back({.text = "Activate below\tCtrl+Down",
               .hint = "Makes the segment below the active one active",
               .run = Guarded([&app] { app.OnActivateBelow(); }),
               .enabled = rule(CanActivateBelow)});
  m.push_back({.text = "Activate above\tCtrl+Up",
               .hint = "Makes the segment above the active one active",
               .run = Guarded([&app] { app.OnActivateAbove(); }),
               .enabled = rule(CanActivateAbove)});
  m.push_back(Separator());
  m.push_back({.text = "Import Mask...",
               .hint = "Reads the active segment's mask from a bitmap file",
               .run = Guarded([&app] { app.OnImportMask(); }),
               .enabled = rule(CanImportMask)});
  m.push_back({.text = "Export Mask...",
               .hint = "Writes the active segment's mask into a bitmap file",
               .run = Guarded([&app] { app.OnExportMask(); }),
               .enabled = rule(CanExportMask)});
  m.push_back(Separator());
  m.push_back({.text = "&Process\tEnter",
               .hint = "Begins or continues after interruption calculation of active segment",
               .run = leaveEdit([&app] { app.OnProcess(); }),
               .enabled = rule(CanProcess)});
  m.push_back({.text = "&Cancel\tEsc",
               .hint = "Stops calculation of active segment",
               .run = Guarded([&app] { app.OnCancel(); }),
               .enabled = rule(CanCancel)});
  m.push_back({.text = "&Trim",
               .hint = "Erases calculated motions in the frames of active segment beyond its "
                       "back and front ends",
               .run = Guarded([&app] { app.OnTrim(); }),
               .enabled = rule(CanTrim)});
  m.push_back(Separator());
  m.push_back({.text = "Process All",
               .hint = "Begins calculation of every segment with frames left to calculate",
               .run = leaveEdit([&app] { app.OnProcessAll(); }),
               .enabled = rule(CanProcessAll)});
  m.push_back({.text = "Cancel All",
               .hint = "Stops calculation of all segments",
               .run = Guarded([&app] { app.OnCancelAll(); }),
               .enabled = rule(CanCancelAll)});
  return m;
}

std::vector<MenuCommand> WindowPresenter::DisplayMenu() {
  VLView& view = ports_.view;
  Velomar& app = ports_.app;
  auto open = [&app] { return app.IsProjectOpen(); };
  auto flag = [this, &view, open](const char* text, const char* hint, uint32_t DisplayStyle::*f) {
    return MenuCommand{.text = text,
                       .hint = hint,
                       .run = [this, f] { ChangeStyle([f](DisplayStyle& s) { s.*f = !(s.*f); }); },
                       .enabled = open,
                       .checked = [&view, f] { return view.GetDisplayStyle().*f != 0; }};
  };
  auto colours = [this, &view](uint32_t DisplayStyle::*f, bool system) {
    std::vector<MenuCommand> items;
    if (system) {
      const uint32_t workspace = ports_.workspace_colour;
      items.push_back(
          {.text = "System",
           .hint = "Shows the desktop's workspace colour around the picture",
           .run = [this, f, workspace] { ChangeStyle([&](DisplayStyle& s) { s.*f = workspace; }); },
           .checked = [&view, f, workspace] { return view.GetDisplayStyle().*f == workspace; }});
    }
    for (const NamedColour& c : kColours) {
      const uint32_t colour = c.colour;
      items.push_back(
          {.text = c.name,
           .hint = "Chooses this colour",
           .run = [this, f, colour] { ChangeStyle([&](DisplayStyle& s) { s.*f = colour; }); },
           .checked = [&view, f, colour] { return view.GetDisplayStyle().*f == colour; }});
    }
    items.push_back({.text = "Custom...",
                     .hint = "Chooses any colour",
                     .run =
                         [this, &view, f] {
                           if (!ports_.actions.chooseColour) return;
                           const auto rgb = ports_.actions.chooseColour(
                               PixelColourToRgb(view.GetDisplayStyle().*f));
                           if (rgb)
                             ChangeStyle([&](DisplayStyle& s) { s.*f = RgbToPixelColour(*rgb); });
                         },
                     .enabled = [this] { return bool(ports_.actions.chooseColour); }});
    return items;
  };
  auto opacities = [this, &view](uint32_t DisplayStyle::*f) {
    std::vector<MenuCommand> items;
    for (uint32_t o : kOpacities) {
      items.push_back({.text = std::to_string(o / 10) + "%",
                       .hint = "Sets the opacity",
                       .run = [this, f, o] { ChangeStyle([&](DisplayStyle& s) { s.*f = o; }); },
                       .checked = [&view, f, o] { return view.GetDisplayStyle().*f == o; }});
    }
    return items;
  };
  auto action = [this](std::function<void()> WindowActions::*a) {
    return [this, a] {
      if (ports_.actions.*a) (ports_.actions.*a)();
    };
  };
  auto can = [this, open](std::function<void()> WindowActions::*a) {
    return [this, a, open] { return open() && bool(ports_.actions.*a); };
  };
  std::vector<MenuCommand> m;
  m.push_back({.text = "Preview",
               .hint = "Shows the composite: underlay, overlay and mask",
               .run = [this] { SetEditMode(false); },
               .enabled = open,
               .checked = [&view] { return view.view_mode() == 0; }});
  m.push_back({.text = "Edit Mask\tM",
               .hint = "Paints the active segment's mask on its key frame",
               .run = [this] { SetEditMode(ports_.view.view_mode() == 0); },
               .enabled = [this, &view] { return view.view_mode() != 0 || CanEditMask(); },
               .checked = [&view] { return view.view_mode() == 1; }});
  m.push_back(Separator());
  m.push_back({.text = "Zoom In\tCtrl++",
               .hint = "Magnifies the picture",
               .run = action(&WindowActions::zoomIn),
               .enabled = can(&WindowActions::zoomIn)});
  m.push_back({.text = "Zoom Out\tCtrl+ -",
               .hint = "Reduces the picture",
               .run = action(&WindowActions::zoomOut),
               .enabled = can(&WindowActions::zoomOut)});
  m.push_back({.text = "Fit on Screen\tCtrl+0",
               .hint = "Shows the whole picture in the window",
               .run = action(&WindowActions::fitOnScreen),
               .enabled = can(&WindowActions::fitOnScreen)});
  m.push_back({.text = "Actual Pixels\tAlt+Ctrl+0",
               .hint = "Shows one picture pixel on one screen pixel",
               .run = action(&WindowActions::actualPixels),
               .enabled = can(&WindowActions::actualPixels)});
  m.push_back(Separator());
  m.push_back(flag("Underlay", "Shows or hides the underlay", &DisplayStyle::show_underlay));
  m.push_back(flag("Overlay", "Shows or hides the overlay", &DisplayStyle::show_overlay));
  m.push_back(flag("Mask", "Shows or hides the mask", &DisplayStyle::show_mask));
  m.push_back(Separator());
  m.push_back(Popup("Background Color", colours(&DisplayStyle::background, true), true));
  m.push_back(Popup("Overlay Opacity", opacities(&DisplayStyle::overlay_opacity), true));
  m.push_back(Popup("Mask Color", colours(&DisplayStyle::mask_color, false), true));
  m.push_back(Popup("Mask Opacity", opacities(&DisplayStyle::mask_opacity), true));
  std::vector<MenuCommand> interpolation;
  for (uint32_t value : {0u, 1u}) {
    interpolation.push_back(
        {.text = value ? "Bilinear" : "Nearest Neighbour",
         .hint = "Sets how the overlay and the underlay are resampled",
         .run = [this, value] { ChangeStyle([&](DisplayStyle& s) { s.interpolation = value; }); },
         .checked =
             [&view, value] {
               return (view.GetDisplayStyle().interpolation == 1) == (value == 1);
             }});
  }
  m.push_back(Popup("Interpolation", std::move(interpolation), true));
  m.push_back(flag("Inverse Mask", "Tints the outside of the mask instead of the inside",
                   &DisplayStyle::inverse_mask));
  return m;
}

std::vector<MenuCommand> WindowPresenter::TimeMenu() {
  Velomar& app = ports_.app;
  VLComp& comp = app.GetComposition();
  VLView& view = ports_.view;
  auto open = [&app] { return app.IsProjectOpen(); };
  auto go = [this](std::function<int32_t()> frame) {
    return Guarded([this, frame = std::move(frame)] { SetTime(frame()); });
  };
  auto segmentOpen = [&app, &comp] { return app.IsProjectOpen() && comp.GetActiveSegment() >= 0; };
  auto active = [&comp] { return comp.GetSegmentObject(comp.GetActiveSegment()).GetTimeSpan(); };
  std::vector<MenuCommand> m;
  m.push_back({.text = "First Frame\tHome",
               .hint = "Goes to the first frame",
               .run = go([] { return 0; }),
               .enabled = open});
  m.push_back({.text = "Work Area Start\tShift+Home",
               .hint = "Goes to the first frame of the work area",
               .run = go([&comp] { return comp.GetWorkArea().first; }),
               .enabled = open});
  m.push_back({.text = "Previous Frame\tCtrl+Left",
               .hint = "Goes one frame back",
               .run = go([&comp] { return comp.GetCurrentTime() - 1; }),
               .enabled = open});
  m.push_back({.text = "Play Backward\tAlt+Space",
               .hint = "Plays the work area backward",
               .run = Guarded([&view] { view.set_play_state(kPlayBackward); }),
               .enabled = [&view, open] { return open() && view.play_state() != kPlayBackward; },
               .checked = [&view] { return view.play_state() == kPlayBackward; }});
  // One key starts and stops playing: only one of the two is enabled at a time.
  m.push_back({.text = "Pause\tSpace",
               .hint = "Stops playing",
               .run = Guarded([&view] { view.set_play_state(kStopped); }),
               .enabled = [&view] {
                 return view.play_state() == kPlayForward || view.play_state() == kPlayBackward;
               }});
  m.push_back({.text = "Play Forward\tSpace",
               .hint = "Plays the work area forward",
               .run = Guarded([&view] { view.set_play_state(kPlayForward); }),
               .enabled =
                   [&view, open] {
                     return open() && view.play_state() != kPlayForward &&
                            view.play_state() != kPlayBackward;
                   },
               .checked = [&view] { return view.play_state() == kPlayForward; }});
  m.push_back({.text = "Next Frame\tCtrl+Right",
               .hint = "Goes one frame forward",
               .run = go([&comp] { return comp.GetCurrentTime() + 1; }),
               .enabled = open});
  m.push_back({.text = "Work Area End\tShift+End",
               .hint = "Goes to the last frame of the work area",
               .run = go([&comp] { return comp.GetWorkArea().last - 1; }),
               .enabled = open});
  m.push_back({.text = "Last Frame\tEnd",
               .hint = "Goes to the last frame",
               .run = go([&comp] { return comp.GetLength() - 1; }),
               .enabled = open});
  m.push_back(Separator());
  m.push_back({.text = "Segment Back End\tI",
               .hint = "Goes to the first frame of the active segment",
               .run = go([active] { return active().first; }),
               .enabled = segmentOpen});
  m.push_back({.text = "Segment Front End\tO",
               .hint = "Goes to the last frame of the active segment",
               .run = go([active] { return active().last - 1; }),
               .enabled = segmentOpen});
  m.push_back({.text = "Go to Frame...\tCtrl+G",
               .hint = "Goes to the frame of the number you enter",
               .run = Guarded([this, &comp] {
                 if (!ports_.actions.askFrame) return;
                 if (const auto text = ports_.actions.askFrame()) comp.SetCurrentTimeByText(*text);
               }),
               .enabled = [this, open] { return open() && bool(ports_.actions.askFrame); }});
  m.push_back(Separator());
  m.push_back({.text = "Follow",
               .hint = "Shows each frame as the tracker computes it",
               .run = Guarded([&view] {
                 view.set_play_state(view.play_state() == kFollowTracker ? kStopped
                                                                         : kFollowTracker);
               }),
               .enabled = open,
               .checked = [&view] { return view.play_state() == kFollowTracker; }});
  m.push_back({.text = "Auto Follow",
               .hint = "Permits or prohibits automatic switching in follow mode on beginning of "
                       "segment or segment group processing",
               .run = [&view] { view.SetAutoFollow(!view.GetTimeSettings().auto_follow); },
               .checked = [&view] { return view.GetTimeSettings().auto_follow; }});
  m.push_back({.text = "Loop",
               .hint = "Selects one of two variants of playback continuation on reaching a "
                       "bound of work area",
               .run = [&view] { view.SetLoop(!view.GetTimeSettings().loop); },
               .checked = [&view] { return view.GetTimeSettings().loop; }});
  std::vector<MenuCommand> rates;
  for (uint32_t rate : kFrameRates) {
    const uint32_t delay = PlayDelayOfRate(rate);
    rates.push_back(
        {.text = std::to_string(rate) + " fps",
         .hint = "Sets the playback rate",
         .run = [&view, delay] { view.set_play_delay(delay); },
         .checked = [&view, delay] { return view.GetTimeSettings().play_delay == delay; }});
  }
  m.push_back(Popup("Frame Rate", std::move(rates), true));
  return m;
}

std::vector<MenuCommand> WindowPresenter::TracklineMenu() {
  Velomar& app = ports_.app;
  VLComp& comp = app.GetComposition();
  VLCompInterface& c = comp.GetInterface();
  auto open = [&app] { return app.IsProjectOpen(); };
  auto segment = [&app, &comp] {
    const CommandSnapshot s = app.GetCommandState();
    return s.active() && !s.active()->processing && comp.GetActiveSegment() >= 0;
  };
  auto action = [this](std::function<void()> WindowActions::*a) {
    return [this, a] {
      if (ports_.actions.*a) (ports_.actions.*a)();
    };
  };
  auto can = [this, open](std::function<void()> WindowActions::*a) {
    return [this, a, open] { return open() && bool(ports_.actions.*a); };
  };
  auto span = [&c]() -> VL::Segment& { return c.GetSegment(c.GetActiveSegment()); };
  std::vector<MenuCommand> m;
  m.push_back({.text = "Zoom In\t+",
               .hint = "Magnifies the time axis",
               .run = action(&WindowActions::tracklineZoomIn),
               .enabled = can(&WindowActions::tracklineZoomIn)});
  m.push_back({.text = "Zoom Out\t-",
               .hint = "Reduces the time axis",
               .run = action(&WindowActions::tracklineZoomOut),
               .enabled = can(&WindowActions::tracklineZoomOut)});
  m.push_back({.text = "Fit in Window\tCtrl+Alt+Home",
               .hint = "Shows the whole time axis",
               .run = action(&WindowActions::tracklineFit),
               .enabled = can(&WindowActions::tracklineFit)});
  m.push_back(Separator());
  m.push_back({.text = "&Begin Work Area\tB",
               .hint = "Starts the work area at the current frame",
               .run = Guarded([&c] {
                 c.SetWorkArea(c.GetCurrentTime(),
                               std::max(c.GetWorkArea().last, c.GetCurrentTime() + 1));
               }),
               .enabled = open});
  m.push_back({.text = "E&nd Work Area\tN",
               .hint = "Ends the work area at the current frame",
               .run = Guarded([&c] {
                 c.SetWorkArea(std::min(c.GetWorkArea().first, c.GetCurrentTime()),
                               c.GetCurrentTime() + 1);
               }),
               .enabled = open});
  m.push_back({.text = "Set Segment Back\tAlt+[",
               .hint = "Starts the active segment at the current frame",
               .run = Guarded([&c, span] {
                 VL::Segment& s = span();
                 s.SetTimeSpan(c.GetCurrentTime(),
                               std::max(s.GetTimeSpan().last, c.GetCurrentTime() + 1));
               }),
               .enabled = segment});
  m.push_back({.text = "Set Segment Front\tArl+]",
               .hint = "Ends the active segment at the current frame",
               .run = Guarded([&c, span] {
                 VL::Segment& s = span();
                 s.SetTimeSpan(std::min(s.GetTimeSpan().first, c.GetCurrentTime()),
                               c.GetCurrentTime() + 1);
               }),
               .enabled = segment});
  return m;
}

std::vector<MenuCommand> WindowPresenter::AfterEffectsMenu() {
  link::HostLink* l = ports_.link;
  using Ui = link::CommandUi;
  // The link's rules, asked once per opening of the menu (a query of the
  // plug-in each time, as the host's own update handlers do).
  auto ui = [this](Ui link::LinkCommands::*which) {
    return [this, which] {
      if (!link_ui_) RefreshLink();
      return link_ui_ ? *link_ui_.*which : Ui{};
    };
  };
  auto entry = [this, l, &ui](const link::LinkCommandInfo& info, Ui link::LinkCommands::*which,
                              void (link::HostLink::*run)(), bool keepText) {
    MenuCommand m{.text = info.menu_text,
                  .hint = info.hint,
                  .run = Guarded([l, run] {
                    if (l) (l->*run)();
                  }),
                  .enabled = [ui, which] { return ui(which)().enabled; }};
    if (!keepText) {
      m.label = [ui, which, text = std::string(info.menu_text)] {
        const Ui u = ui(which)();
        return u.text.empty() ? text : u.text;
      };
    }
    return m;
  };
  return {entry(link::SwitchToHostInfo(), &link::LinkCommands::switchToHost,
                &link::HostLink::OnSwitchToHost, false),
          Separator(),
          entry(link::ImportProjectInfo(), &link::LinkCommands::importProject,
                &link::HostLink::OnImportProject, true),
          entry(link::ImportOverlayInfo(), &link::LinkCommands::importOverlay,
                &link::HostLink::OnImportOverlay, false),
          entry(link::ExportProjectInfo(), &link::LinkCommands::exportProject,
                &link::HostLink::OnExportProject, true),
          entry(link::ExportTransformationsInfo(), &link::LinkCommands::exportTransformations,
                &link::HostLink::OnExportTransformations, true)};
}

std::vector<MenuCommand> WindowPresenter::ViewMenu() {
  auto toggle = [this](const char* text, const char* hint, bool LayoutSettings::*f) {
    return MenuCommand{.text = text,
                       .hint = hint,
                       .run =
                           [this, f] {
                             layout_.*f = !(layout_.*f);
                             if (ports_.actions.layoutChanged) ports_.actions.layoutChanged();
                           },
                       .checked = [this, f] { return layout_.*f; }};
  };
  return {
      toggle("&Right Bar", "Shows or hides the bar on the right", &LayoutSettings::rightBarVisible),
      toggle("&Trackline", "Shows or hides the trackline bar at the bottom",
             &LayoutSettings::bottomBarVisible),
      toggle("&Status Bar", "Shows or hides the status bar", &LayoutSettings::statusBar)};
}

std::vector<MenuCommand> WindowPresenter::HelpMenu() {
  Velomar& app = ports_.app;
  return {{.text = "Velomar Manual...",
           .hint = "Opens the user's manual",
           .run =
               [this] {
                 if (ports_.actions.manual) ports_.actions.manual();
               },
           .enabled = [&app] { return CanManual(app.GetCommandState()); }},
          {.text = "&About Velomar...",
           .hint = "Shows the program's version and licence",
           .run =
               [this] {
                 if (ports_.actions.about) ports_.actions.about();
               },
           .enabled = [&app] { return CanAbout(app.GetCommandState()); }}};
}

}  // namespace app
