// The host's management-CLI framework: a parser of command lines and a dispatcher that runs them.
// Used from one thread.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace CppTools::CallSpec {

class Input {
 public:
  void AddParameter(const std::string& name, const std::string& value) {
    parameters_.emplace_back(name, value);
  }
  const std::vector<std::pair<std::string, std::string>>& GetParameters() const {
    return parameters_;
  }

 private:
  std::vector<std::pair<std::string, std::string>> parameters_;
};

class Output {
 public:
  void AddError(std::string text) { errors_.push_back(std::move(text)); }
  bool HasError() const { return !errors_.empty(); }
  const std::vector<std::string>& GetErrors() const { return errors_; }

 private:
  std::vector<std::string> errors_;
};

}  // namespace CppTools::CallSpec

namespace CppTools::AutoCli {

/// A command as a dispatcher takes it.
class CommandInput : public CallSpec::Input {
 public:
  static std::shared_ptr<CommandInput> New() { return std::make_shared<CommandInput>(); }

  void SetDispatcher(const std::string& name) { dispatcher_ = name; }
  void SetCommandPath(std::list<std::string>& path) { path_ = path; }
  const std::string& GetDispatcher() const { return dispatcher_; }
  const std::list<std::string>& GetCommandPath() const { return path_; }

 private:
  std::string dispatcher_;
  std::list<std::string> path_;
};

/// What became of a command.
class CommandOutput : public CallSpec::Output {
 public:
  static std::shared_ptr<CommandOutput> New() { return std::make_shared<CommandOutput>(); }
};

/// Splits one command line into its path and its parameters.
class OptionParser {
 public:
  OptionParser();
  ~OptionParser();
  OptionParser(const OptionParser&) = delete;
  OptionParser& operator=(const OptionParser&) = delete;

  /// False when the line cannot be parsed; GetParseErrors then says why.
  bool ParseString(const std::string& line);
  std::vector<std::string> GetParseErrors() const;
  std::list<std::string> GetCommandPath() const;
  /// (name, value) pairs in the order of the line, names without their dashes.
  std::vector<std::pair<std::string, std::string>> GetCommandParameters() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Holds command definitions and runs commands.
class Dispatcher {
 public:
  Dispatcher();
  virtual ~Dispatcher();
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  /// Registers the commands that the files of a directory define. Throws std::exception when the
  /// directory cannot be read.
  void AddExternalDirectory(const std::string& directory);

  /// Runs one command to its end; what went wrong is left in `output`.
  void ExecuteCommand(std::shared_ptr<CommandInput> input, std::shared_ptr<CommandOutput> output);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace CppTools::AutoCli
