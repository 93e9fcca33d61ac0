// SPDX-License-Identifier: GPL-3.0-or-later
// One undoable change of project data, and the generic change of one value.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

class Action {
 public:
  virtual ~Action() = default;
  // Applies the change (also the redo); false when nothing changed, and the
  // queue then drops the action.
  virtual bool Do() = 0;
  virtual void Undo() = 0;
  // The text of the menus.
  virtual std::string GetName() const = 0;

  // 1 at construction; the queue negates it when the project is saved, so
  // that undoing an action older than the save counts as a modification.
  int32_t weight = 1;
};

// A change of a value read and written through Get and Set. The setters clamp,
// so a value that clamps to the old one counts as no change.
template <class T>
class ChangeValueAction : public Action {
 public:
  ChangeValueAction(T newValue, std::string name)
      : newValue_(std::move(newValue)), name_(std::move(name)) {}

  bool Do() override {
    oldValue_ = Get();
    Set(newValue_);
    return !(Get() == oldValue_);
  }
  void Undo() override { Set(oldValue_); }
  std::string GetName() const override { return name_; }

 protected:
  virtual T Get() const = 0;
  virtual void Set(T value) = 0;

 private:
  T newValue_;
  T oldValue_{};
  std::string name_;
};

// The same for a value too large to pass around by copy.
template <class T>
class ChangeValueByRefAction : public Action {
 public:
  ChangeValueByRefAction(const T& newValue, std::string name)
      : newValue_(newValue), name_(std::move(name)) {}

  bool Do() override {
    oldValue_ = Get();
    Set(newValue_);
    return !(Get() == oldValue_);
  }
  void Undo() override { Set(oldValue_); }
  std::string GetName() const override { return name_; }

 protected:
  virtual const T& Get() const = 0;
  virtual void Set(const T& value) = 0;

 private:
  T newValue_;
  T oldValue_{};
  std::string name_;
};

// A value action on `Target` through two of its member functions; the named
// actions of the composition, segment and overlay are instances of it.
template <class Base, class Target, class T, auto Getter, auto Setter>
class MemberValueAction : public Base {
 public:
  MemberValueAction(Target& target, const T& value, std::string name)
      : Base(value, std::move(name)), target_(&target) {}

 protected:
  using Value = std::conditional_t<std::is_same_v<Base, ChangeValueAction<T>>, T, const T&>;
  Value Get() const override { return (target_->*Getter)(); }
  void Set(Value value) override { (target_->*Setter)(value); }

 private:
  Target* target_;
};
