#ifndef COMPANIONS_CONTROL_TURN_H
#define COMPANIONS_CONTROL_TURN_H

/// The right to change services, which one command has at a time. The thread of the control.
class Turn
{
public:
  Turn() = default;
  ~Turn() { give_back(); }

  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// Whether this one has the turn, or takes it as nobody has it.
  bool take()
  {
    if (!owner_)
      owner_ = this;
    return owner_ == this;
  }

  void give_back()
  {
    if (owner_ == this)
      owner_ = nullptr;
  }

private:
  static inline const Turn* owner_ = nullptr;
};

#endif // COMPANIONS_CONTROL_TURN_H
