// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/link/link_rules.h"

namespace app::link {

const LinkCommandInfo& SwitchToHostInfo() {
  static const LinkCommandInfo info{
      32777, "AE_LAUNCH", "Switch to After Effects",
      "Changes the focus on Adobe(R) After Effects(R) application, launches it if required"};
  return info;
}

const LinkCommandInfo& ImportProjectInfo() {
  static const LinkCommandInfo info{32806, "", "Import Project",
                                    "Transfers active footage as underlay from AE into Velomar"};
  return info;
}

const LinkCommandInfo& ImportOverlayInfo() {
  static const LinkCommandInfo info{
      32807, "AE_IMPORT_OVERLAY", "Import Overlay",
      "Transfers active footage as live or still overlay from AE into Velomar"};
  return info;
}

const LinkCommandInfo& ExportProjectInfo() {
  static const LinkCommandInfo info{32808, "", "Export Project",
                                    "Transfers open in Velomar project as a new composition in AE"};
  return info;
}

const LinkCommandInfo& ExportTransformationsInfo() {
  static const LinkCommandInfo info{
      32809, "AE_EXPORT_TRANSFORMATIONS", "Export Transformations",
      "Performs export of motions from Velomar into current composition's layer in AE"};
  return info;
}

CommandUi SwitchToHostUi(const LinkSnapshot& s) {
  return {s.hostWindow || s.hostCommand,
          s.hostWindow ? "Switch to After Effects ®" : "Launch After Effects"};
}

CommandUi ImportProjectUi(const LinkSnapshot& s) {
  return {s.idle && s.actions.Underlay, ""};
}

CommandUi ImportOverlayUi(const LinkSnapshot& s) {
  const char* text = !s.actions.Overlay       ? "Import Overlay"
                     : s.actions.StillOverlay ? "Import Still Overlay"
                                              : "Import Live Overlay";
  return {s.hasUnderlay && s.mainWindowEnabled && s.actions.Overlay, text};
}

CommandUi ExportProjectUi(const LinkSnapshot& s) {
  return {s.hasUnderlay && s.actions.Project, ""};
}

CommandUi ExportTransformationsUi(const LinkSnapshot& s, bool in_menu) {
  return {s.hasFrames && s.actions.Transformations, in_menu ? "" : "Export Transformations"};
}

exchange::link::PossibleActions OfferedActions(const LinkSnapshot& s) {
  exchange::link::PossibleActions a;
  a.Underlay = s.idle;
  a.Overlay = s.hasUnderlay && s.mainWindowEnabled;
  a.StillOverlay = false;
  a.Transformations = s.hasFrames;
  a.Project = s.hasUnderlay;
  return a;
}

}  // namespace app::link
