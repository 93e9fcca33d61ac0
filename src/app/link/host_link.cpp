// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/link/host_link.h"

#include <cmath>

#include "app/commands/application.h"
#include "app/commands/command_texts.h"
#include "app/link/host_launcher.h"
#include "app/model/comp.h"
#include "app/model/keyframe_export.h"
#include "base/paths.h"

namespace app::link {

using exchange::link::ImageSequenceRecord;
using exchange::link::Message;
using exchange::link::MessageType;

void LinkStatus::Publish(const LinkSnapshot& s) {
  idle_.store(s.idle);
  hasUnderlay_.store(s.hasUnderlay);
  mainWindowEnabled_.store(s.mainWindowEnabled);
  hasFrames_.store(s.hasFrames);
}

LinkSnapshot LinkStatus::Read() const {
  LinkSnapshot s;
  s.idle = idle_.load();
  s.hasUnderlay = hasUnderlay_.load();
  s.mainWindowEnabled = mainWindowEnabled_.load();
  s.hasFrames = hasFrames_.load();
  return s;
}

HostLink::HostLink(HostLinkPorts ports)
    : ports_(std::move(ports)),
      pluginPath_(ports_.plugin_path.empty()
                      ? exchange::link::SocketPath(exchange::link::kPluginSocket)
                      : ports_.plugin_path) {
  Publish();
}

LinkSnapshot HostLink::Snapshot() {
  Velomar& app = ports_.app;
  LinkSnapshot s;
  // Rendering holds the window; while it is free the program can take footage.
  s.idle = app.mainWindowEnabled;
  s.mainWindowEnabled = app.mainWindowEnabled;
  s.hasUnderlay = app.IsProjectOpen();
  s.hasFrames = HasTransformsToExport(app.GetComposition());
  if (ports_.host) {
    s.hostWindow = ports_.host->FindHostWindow();
    s.hostCommand = !ports_.host->GetHostCommand().empty();
  }
  s.actions = actions_;
  return s;
}

void HostLink::Publish() {
  status_.Publish(Snapshot());
}

Message HostLink::Transact(const Message& request) {
  std::string reply;
  exchange::link::Transact(pluginPath_, request.ToBytes(), reply, ports_.options);
  Message message;
  message.FromBytes(reply);
  return message;
}

const exchange::link::PossibleActions& HostLink::QueryPossibleActions() {
  if (!exchange::link::IsListening(pluginPath_, ports_.options)) {
    actions_ = {};
    return actions_;
  }
  const Message reply = Transact(Message(MessageType::PossibleActions));
  actions_ = exchange::link::ReadPossibleActionsMessage(reply);
  return actions_;
}

void HostLink::RequestSequence(MessageType kind, const char* operation) {
  OperationStack& operations = ports_.app.GetOperations();
  operations.push(operation);
  const Message reply = Transact(Message(kind));
  if (reply.GetType() != kind) reply.Throw();
  Receive(kind, exchange::link::ReadSequenceMessage(reply));
  operations.pop();
}

void HostLink::RequestUnderlay() {
  RequestSequence(MessageType::Underlay, kRequestingUnderlay);
}

void HostLink::RequestOverlay() {
  RequestSequence(MessageType::Overlay, kRequestingOverlay);
}

void HostLink::SendTransformations() {
  VLComp& comp = ports_.app.GetComposition();
  if (!HasTransformsToExport(comp)) return;
  const Message reply =
      Transact(exchange::link::MakeTransformationsMessage(OverlayTransformations(comp)));
  if (!reply.IsEmpty()) reply.Throw();
  FrontHost();
}

void HostLink::SendProject() {
  if (!ports_.app.IsProjectOpen()) return;
  VLComp& comp = ports_.app.GetComposition();
  exchange::link::ProjectRecord p;
  if (HasTransformsToExport(comp)) {
    p.transformations = OverlayTransformations(comp);
  } else {
    p.transformations.ExportInaccuracy = comp.GetExportInaccuracy();
    p.transformations.Task = comp.GetTask();
    p.transformations.ExportModel = comp.GetExportModel();
  }
  p.Name = FileTitle(comp.GetProjectPath());
  p.width = comp.GetWidth();
  p.height = comp.GetHeight();
  // The link's messages carry whole rates: 29.97 goes out as 30.
  p.Framerate = uint32_t(std::lround(comp.GetFramerate()));
  p.aspect = comp.GetPixelAspect();
  p.underlay = comp.GetUnderlay();
  const VLOverlay& overlay = comp.GetOverlay();
  p.overlay.frames = overlay.GetPaths();
  p.overlay.SourceOffset = overlay.GetSourceOffset();
  p.overlay.Trimming = overlay.GetTrimming();
  const Message reply = Transact(exchange::link::MakeProjectMessage(p));
  if (!reply.IsEmpty()) reply.Throw();
  FrontHost();
}

void HostLink::FrontHost() {
  if (ports_.host) ports_.host->SwitchToHost();
}

void HostLink::Receive(MessageType kind, const ImageSequenceRecord& record) {
  Velomar& app = ports_.app;
  if (kind == MessageType::Underlay) {
    if (!record.frames.empty())
      app.LoadSequenceList(record.frames, record.Framerate, record.aspect, record.StartFrame);
  } else if (app.IsProjectOpen()) {
    app.GetOperations().push(kImportingOverlay);
    app.GetComposition().GetInterface().GetOverlay().Import(record.frames);
    app.GetOperations().pop();
  }
  Publish();
}

LinkCommands HostLink::Refresh() {
  QueryPossibleActions();
  const LinkSnapshot s = Snapshot();
  status_.Publish(s);
  return {SwitchToHostUi(s), ImportProjectUi(s), ImportOverlayUi(s), ExportProjectUi(s),
          ExportTransformationsUi(s)};
}

void HostLink::OnSwitchToHost() {
  if (!ports_.host || !Refresh().switchToHost.enabled) return;
  ports_.host->activate_or_launch();
}

void HostLink::OnImportProject() {
  if (Refresh().importProject.enabled) RequestUnderlay();
}

void HostLink::OnImportOverlay() {
  if (Refresh().importOverlay.enabled) RequestOverlay();
}

void HostLink::OnExportProject() {
  if (Refresh().exportProject.enabled) SendProject();
}

void HostLink::OnExportTransformations() {
  if (Refresh().exportTransformations.enabled) SendTransformations();
}

}  // namespace app::link
