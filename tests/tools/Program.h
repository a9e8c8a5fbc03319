#pragma once

#include <string>
#include <vector>

namespace toolstest {

// What a program that has ended left behind.
struct Outcome {
  int status = -1;  // its exit status; -1 when a signal ended it
  std::string out;
  std::string err;
};

// A running program, its standard streams in the test's hands. Ends with the test.
class Program {
 public:
  // Starts it; the first argument is the program.
  explicit Program(const std::vector<std::string>& arguments);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  void write(const std::string& text) const;
  void closeInput();
  // The next line of standard output without its end, waited for; empty when there is none within
  // ten seconds.
  std::string readLine() { return readLine(out_, outText_); }
  // The same of standard error.
  std::string readErrorLine() { return readLine(err_, errText_); }
  void signal(int number) const;
  // Waits for the end, for at most `seconds`; then ends it by force.
  Outcome finish(double seconds = 30.0);

 private:
  bool readSome(int milliseconds);
  std::string readLine(const int& fd, std::string& text);

  int pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string outText_;
  std::string errText_;
};

// Runs a program to its end with `input` on standard input.
Outcome run(const std::vector<std::string>& arguments, const std::string& input = {});

}  // namespace toolstest
