#include <gtest/gtest.h>

#include <cstring>

#include "options/optobj.h"
#include "session/sess.h"
#include "session/verb.h"

namespace {

TEST(SessOptions, CommunicationSettingsComeFromTheOptions) {
  clientOptions o(ctCLSpaceMGT);
  std::strcpy(o.tcpServerAddress, "backup.example");
  o.tcpPort = 1600;
  o.tcpNoDelay = 0;
  o.tcpBuffSize = 65536;
  o.tcpWindowSize = 131072;
  o.commMethod = 3;  // V6TCPIP travels by TCP as well
  o.commRestartDuration = 2;
  o.commRestartInterval = 30;
  o.passwordAccess = 1;
  std::strcpy(o.passwordDir, "/var/qmx");
  std::strcpy(o.nodeName, "NODE7");
  std::strcpy(o.serverName, "PRIMARY");
  o.largeCommBuffers = 1;

  sessSettings_t s;
  sessSettingsFromOptions(&o, &s);
  EXPECT_EQ(COMM_TCPIP, s.comm.method);
  EXPECT_EQ("backup.example", s.comm.address);
  EXPECT_EQ(1600, s.comm.port);
  EXPECT_FALSE(s.comm.noDelay);
  EXPECT_EQ(65536u, s.comm.bufferSize);
  EXPECT_EQ(131072u, s.comm.windowSize);
  EXPECT_EQ(2u * 60 * 1000, s.comm.restartDurationMs);
  EXPECT_EQ(30u * 1000, s.comm.restartIntervalMs);
  EXPECT_EQ(PSWD_GENERATE, s.passwordAccess);
  EXPECT_TRUE(s.canPrompt);  // a space-management command has a user in front of it

  Sess_o* sess = new_SessionObject(&o, 1);
  ASSERT_NE(nullptr, sess);
  EXPECT_STREQ("NODE7", sess->sessGetString(sessNodeName));
  EXPECT_STREQ("PRIMARY", sess->sessGetString(sessServerName));
  EXPECT_STREQ("/var/qmx", sess->sessGetString(sessPswdDir));
  EXPECT_STREQ("backup.example", sess->sessGetString(sessCommAddress));
  EXPECT_EQ(1600, sess->sessGetUint16(sessCommPort));
  EXPECT_TRUE(sess->sessGetBool(sessLargeBuffers));
  EXPECT_EQ(VERB_MAX_LEN_LARGE, sess->sessGetBufferSize());
  EXPECT_EQ(&o, sess->sessOptions());
  delete_SessionObject(sess);

  o.commMethod = 2;
  sessSettingsFromOptions(&o, &s);
  EXPECT_EQ(COMM_SHAREDMEM, s.comm.method);  // refused later by sessInit

  clientOptions api(ctCLAPI);
  sessSettingsFromOptions(&api, &s);
  EXPECT_FALSE(s.canPrompt);  // nobody to ask
  EXPECT_EQ(1500, s.comm.port);
}

}  // namespace
