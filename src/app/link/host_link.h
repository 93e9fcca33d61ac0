// SPDX-License-Identifier: GPL-3.0-or-later
// The program's side of the link on the thread that owns the composition:
// the user's requests to the host's plug-in (footage in, project and motion
// out), the work the server thread hands over as messages, and the state
// the server may read.
//
// Every request is one transaction on the plug-in's socket; a reply of a
// type not asked for goes to Message::Throw, so the plug-in's "Error" text
// reaches the user. Failures are SystemError (transport), BadMessage and
// the XML errors, left to the command's report.
//
//   app::link::HostLink link({.app = app, .host = &launcher});
//   link.Publish();                   // after every change of the project
//   auto ui = link.Refresh();         // what the panel shows now
//   if (ui.importOverlay.enabled) link.OnImportOverlay();
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "app/link/link_rules.h"
#include "app/ports.h"
#include "exchange/link/records.h"
#include "exchange/link/transport.h"

namespace app {
class Velomar;
}

namespace app::link {

class HostLauncher;

// The state the server thread reads for its answers: published by the
// owning thread, read from any. The answers it gives are advisory; the
// owning thread checks again when the work arrives.
class LinkStatus {
 public:
  void Publish(const LinkSnapshot& snapshot);
  // Host and plug-in fields are not kept: false.
  LinkSnapshot Read() const;

 private:
  std::atomic<bool> idle_{false};
  std::atomic<bool> hasUnderlay_{false};
  std::atomic<bool> mainWindowEnabled_{false};
  std::atomic<bool> hasFrames_{false};
};

struct HostLinkPorts {
  Velomar& app;
  // The host program: fronted after an export, started by Switch to the
  // host. Null: nothing to front or start.
  HostLauncher* host = nullptr;
  // The plug-in's socket; empty: VLPlugin in the socket folder.
  std::string plugin_path = {};
  exchange::link::TransportOptions options = {};
};

struct LinkCommands {
  CommandUi switchToHost, importProject, importOverlay, exportProject, exportTransformations;
};

class HostLink {
 public:
  explicit HostLink(HostLinkPorts ports);

  const std::string& GetPluginPath() const { return pluginPath_; }
  LinkStatus& GetStatus() { return status_; }
  // The project's state, the host's and the plug-in's last answer.
  LinkSnapshot Snapshot();
  // Publishes the project's state for the server thread.
  void Publish();

  // Asks the plug-in what it can do and keeps the answer; all false when it
  // does not listen (no error then).
  const exchange::link::PossibleActions& QueryPossibleActions();
  const exchange::link::PossibleActions& GetPossibleActions() const { return actions_; }

  // Fetch footage from the plug-in and take it as underlay (a new project)
  // or overlay, under "requesting AE for underlay" / "... overlay".
  void RequestUnderlay();
  void RequestOverlay();
  // Push the overlay's motion, or the whole project, to the plug-in; the
  // plug-in answers with the empty message. Nothing happens without motion
  // (without a project); after a send the host's window comes to the front.
  void SendTransformations();
  void SendProject();

  // Footage that arrived (from the server, or a request's reply): the
  // underlay replaces the project, the overlay the overlay.
  void Receive(exchange::link::MessageType kind, const exchange::link::ImageSequenceRecord& record);

  // The update handlers: queries the plug-in and applies the rules.
  LinkCommands Refresh();
  // The commands. Each checks its rule against a fresh query and does
  // nothing when disabled.
  void OnSwitchToHost();
  void OnImportProject();
  void OnImportOverlay();
  void OnExportProject();
  void OnExportTransformations();

 private:
  void RequestSequence(exchange::link::MessageType kind, const char* operation);
  exchange::link::Message Transact(const exchange::link::Message& request);
  void FrontHost();

  HostLinkPorts ports_;
  std::string pluginPath_;
  exchange::link::PossibleActions actions_;
  LinkStatus status_;
};

// Work from the server thread, run on the owning thread.
class ImageSequenceReceipt : public VLMessage {
 public:
  ImageSequenceReceipt(HostLink& link,
                       exchange::link::MessageType kind,
                       exchange::link::ImageSequenceRecord record)
      : link_(link), kind_(kind), record_(std::move(record)) {}
  void Execute() override { link_.Receive(kind_, record_); }
  exchange::link::MessageType kind() const { return kind_; }
  const exchange::link::ImageSequenceRecord& record() const { return record_; }

 private:
  HostLink& link_;
  exchange::link::MessageType kind_;
  exchange::link::ImageSequenceRecord record_;
};

class TransformationsRequest : public VLMessage {
 public:
  explicit TransformationsRequest(HostLink& link) : link_(link) {}
  void Execute() override { link_.SendTransformations(); }

 private:
  HostLink& link_;
};

class ProjectRequest : public VLMessage {
 public:
  explicit ProjectRequest(HostLink& link) : link_(link) {}
  void Execute() override { link_.SendProject(); }

 private:
  HostLink& link_;
};

}  // namespace app::link
