#ifndef TEST_FRAMEWORK_TEST_BASE_H
#define TEST_FRAMEWORK_TEST_BASE_H

#include <Framework/ManagementFramework.h>
#include <PymMgmtSpiThreadContext.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

// A test with the framework stand-in running on a fixture model, every log and trace line
// captured and nothing echoed.
class FrameworkTestBase : public ::testing::Test {
 protected:
  // The level at which the framework records traces.
  static const int TRACE_LEVEL = 8;

  explicit FrameworkTestBase(const std::string& model = "ldap20.xml") : _framework(options(model)) {}

  static std::string fixtureModel(const std::string& name) { return std::string(QIV_FIXTURES_DIR) + "/models/" + name; }

  Framework::ManagementFramework& framework() { return _framework; }
  Framework::LogCapture& log() { return _framework.log(); }

  // The framework's thread-context table, as a component finds it.
  PymMgmtSpiInterface_1* threadContextInterface() {
    PymMgmtSpiInterface_1* result = nullptr;
    PymMgmtSpiInterfacePortal_3* portal =
        static_cast<PymMgmtSpiInterfacePortal_3*>(_framework.accessor()->getPortal("3"));
    portal->getInterface("PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2", &result);
    return result;
  }

  // Every log line below trace level, in order, as "LEVEL method: text".
  std::vector<std::string> logLines() {
    std::vector<std::string> lines;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level < TRACE_LEVEL) lines.push_back(std::to_string(record.level) + " " + record.method + ": " + record.text);
    }
    return lines;
  }

  // What reached the operator outside any transaction, in order.
  std::vector<std::string> operatorMessages() {
    std::vector<std::string> texts;
    for (const Framework::ContextMessage& message : _framework.threadContext().messages(0)) texts.push_back(message.text);
    return texts;
  }

 private:
  static Framework::ManagementFramework::Options options(const std::string& model) {
    Framework::ManagementFramework::Options options;
    options.modelFile = fixtureModel(model);
    options.logLevel = 9;
    options.echoLevel = -1;
    return options;
  }

  Framework::ManagementFramework _framework;
};

#endif
