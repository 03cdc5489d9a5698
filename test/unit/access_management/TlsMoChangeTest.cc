#include "AccessManagementComponent.h"

#include "AttributeValue.h"
#include "FrameworkTestBase.h"
#include "QiveaStandIn.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

using namespace QivAccessManagement;

namespace {

using Args = std::vector<std::string>;

const char TLS_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1";
const char COMPONENT_FILE[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";
const char CIPHER_FILTER_ARGUMENT[] = "--cipherFilter=";

// A configuration-change notification of the Tls object as the event router hands it over.
// The attribute values stay the caller's; everything else is owned here.
class TlsNotification {
 public:
  // Starts a new event of that kind; the attributes added next belong to it.
  TlsNotification& event(PymOamSpiCmEvent_EventType_1 kind) {
    _events.push_back(PymOamSpiCmEvent_1{TLS_DN, kind, nullptr});
    _attributeArrays.emplace_back();
    return *this;
  }

  TlsNotification& attribute(const std::string& name, const PymMoAttributeValueContainer_3& value) {
    _names.push_back(name);
    _attributes.push_back(PymMoNamedAttributeValueContainer_3{_names.back().c_str(), value});
    _attributeArrays.back().push_back(&_attributes.back());
    return *this;
  }

  const PymOamSpiCmEvent_Notification_1& get() {
    _eventArray.clear();
    auto attributes = _attributeArrays.begin();
    for (PymOamSpiCmEvent_1& event : _events) {
      attributes->push_back(nullptr);
      event.attributes = attributes->data();
      _eventArray.push_back(&event);
      ++attributes;
    }
    _eventArray.push_back(nullptr);
    _notification = {1, _eventArray.data()};
    return _notification;
  }

 private:
  // Lists keep the addresses the arrays point at stable.
  std::list<std::string> _names;
  std::list<PymMoNamedAttributeValueContainer_3> _attributes;
  std::list<std::vector<PymMoNamedAttributeValueContainer_3*>> _attributeArrays;
  std::list<PymOamSpiCmEvent_1> _events;
  std::vector<PymOamSpiCmEvent_1*> _eventArray;
  PymOamSpiCmEvent_Notification_1 _notification{};
};

}  // namespace

// A component object of its own, started on the Tls model with the qivea stand-in; its record is
// then switched to an unlocked LDAP configuration over TLS, so that every reconfiguration reaches
// qivea as a dry run and an update carrying the cipher filter.
class TlsMoChangeTest : public FrameworkTestBase {
 protected:
  TlsMoChangeTest() : FrameworkTestBase("tls.xml") {}

  ~TlsMoChangeTest() override { component.stop(PymStateChangeShutdown); }

  void SetUp() override {
    ASSERT_EQ(0, component.lib_init(framework().accessor(), COMPONENT_FILE));
    ASSERT_EQ(0, component.start(PymStateChangeStartup));
    ASSERT_TRUE(runnable().isTlsDnExists());
    LdapConfiguration config = runnable().getLdapConfiguration();
    config.administrativeState = UNLOCKED;
    config.useTls = true;
    runnable().ldapConfigurationUpdated(&config);
    filterBeforeChange = config.cipherFilter;
    _callsBeforeChange = qivea.callsStartingWith("authentication").size();
  }

  ConfigurationRunnable& runnable() { return component.getConfigurationRunnable(); }

  // The authentication calls since the set-up, each as its "--prepare" (when a dry run) and its
  // cipher filter argument.
  std::vector<std::string> commandsSinceSetUp() const {
    const std::vector<Args> calls = qivea.callsStartingWith("authentication");
    std::vector<std::string> commands;
    for (std::size_t i = _callsBeforeChange; i < calls.size(); ++i) {
      std::string command;
      for (const std::string& argument : calls[i]) {
        const bool cipherFilter = argument.compare(0, sizeof CIPHER_FILTER_ARGUMENT - 1, CIPHER_FILTER_ARGUMENT) == 0;
        if (argument == "--prepare" || cipherFilter) command += (command.empty() ? "" : " ") + argument;
      }
      commands.push_back(command);
    }
    return commands;
  }

  // Traces of method with exactly this text.
  std::size_t traces(const std::string& method, const std::string& text) {
    std::size_t count = 0;
    for (const Framework::LogRecord& record : log().records())
      if (record.level == TRACE_LEVEL && record.method == method && record.text == text) ++count;
    return count;
  }

  // Nothing was reconfigured although the notification was looked at.
  void expectNoReconfiguration() {
    EXPECT_EQ(1u, traces("onTlsMoChange", " >> "));
    EXPECT_EQ(1u, traces("onTlsMoChange", " << "));
    EXPECT_EQ(0u, traces("cipherReconfiguration", " >> "));
    EXPECT_TRUE(commandsSinceSetUp().empty());
  }

  std::string storedFilter() { return runnable().getLdapConfiguration().cipherFilter; }

  QiveaStandIn qivea{QIVEA_DIR};
  AccessManagementComponent component;
  std::string filterBeforeChange;

 private:
  std::size_t _callsBeforeChange = 0;
};

TEST_F(TlsMoChangeTest, CipherFilterWithoutValuesChangesNothing) {
  // A value is there to be read; only the count says there is none.
  const AttributeValue high = AttributeValue::text("HIGH");
  PymMoAttributeValueContainer_3 counted = *high.get();
  counted.nrOfValues = 0;
  const AttributeValue unset = AttributeValue::unset(PymMoValueType_String);
  TlsNotification notification;
  notification.event(PymOamSpiCmEvent_AttributeValueChange)
      .attribute("cipherFilter", counted)
      .attribute("cipherFilter", *unset.get());
  component.onTlsMoChange(notification.get());
  expectNoReconfiguration();
  EXPECT_EQ(filterBeforeChange, storedFilter());
}

TEST_F(TlsMoChangeTest, CipherFilterOfAnotherValueTypeChangesNothing) {
  // A reference's text sits where a string's would: only the type tells them apart.
  const AttributeValue reference = AttributeValue::reference("HIGH");
  const AttributeValue enumeration = AttributeValue::enumeration(1);
  TlsNotification notification;
  notification.event(PymOamSpiCmEvent_AttributeValueChange)
      .attribute("cipherFilter", *reference.get())
      .attribute("cipherFilter", *enumeration.get());
  component.onTlsMoChange(notification.get());
  expectNoReconfiguration();
  EXPECT_EQ(filterBeforeChange, storedFilter());
}

TEST_F(TlsMoChangeTest, TwoCipherFiltersReconfigureTwiceInArrayOrder) {
  const AttributeValue first = AttributeValue::text("HIGH");
  const AttributeValue second = AttributeValue::text("MEDIUM");
  TlsNotification notification;
  notification.event(PymOamSpiCmEvent_AttributeValueChange)
      .attribute("cipherFilter", *first.get())
      .attribute("cipherFilter", *second.get());
  component.onTlsMoChange(notification.get());
  EXPECT_EQ((std::vector<std::string>{"--prepare --cipherFilter=HIGH:@STRENGTH", "--cipherFilter=HIGH:@STRENGTH",
                                      "--prepare --cipherFilter=MEDIUM:@STRENGTH", "--cipherFilter=MEDIUM:@STRENGTH"}),
            commandsSinceSetUp());
  EXPECT_EQ(2u, traces("cipherReconfiguration", " >> "));
  EXPECT_EQ("MEDIUM:@STRENGTH", storedFilter());
}

TEST_F(TlsMoChangeTest, EventsOfAnotherKindThanAttributeValueChangeAreIgnored) {
  const AttributeValue created = AttributeValue::text("HIGH");
  const AttributeValue deleted = AttributeValue::text("LOW");
  const AttributeValue changed = AttributeValue::text("MEDIUM");
  TlsNotification notification;
  // Attributes a creation or deletion would not carry, so that only the kind keeps them out.
  notification.event(PymOamSpiCmEvent_MoCreated).attribute("cipherFilter", *created.get());
  notification.event(PymOamSpiCmEvent_MoDeleted).attribute("cipherFilter", *deleted.get());
  // The change after them is still looked at.
  notification.event(PymOamSpiCmEvent_AttributeValueChange).attribute("cipherFilter", *changed.get());
  component.onTlsMoChange(notification.get());
  EXPECT_EQ((std::vector<std::string>{"--prepare --cipherFilter=MEDIUM:@STRENGTH", "--cipherFilter=MEDIUM:@STRENGTH"}),
            commandsSinceSetUp());
  EXPECT_EQ(1u, traces("cipherReconfiguration", " >> "));
}
