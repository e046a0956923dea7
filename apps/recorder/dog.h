#pragma once

/// One thread's entry in the watchdog, for as long as the object lives.
///
///     Dog dog("gps reader");
///     while (GetStatus() != 0)
///     {
///       dog.feed();
///       // one short step
///     }
class Dog
{
public:
  /// @param name     how a stalled thread is called
  /// @param seconds  without a feed after which the checks begin to count
  explicit Dog(const char* name, int seconds = kTimeoutSeconds);
  ~Dog();
  Dog(const Dog&) = delete;
  Dog& operator=(const Dog&) = delete;

  void feed() const;

  static constexpr int kTimeoutSeconds = 3;

private:
  int id_;
};
