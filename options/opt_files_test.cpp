// Reading option files from temporary directories: the line reader, the
// user option file, the system option file's stanzas, the environment and
// the error records.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "options/optobj.h"
#include "options/testing/env_var.h"
#include "testing/temp_dir.h"

namespace {

using opttest::EnvVar;
using qmxtest::TempDir;

class OptFiles : public ::testing::Test {
 protected:
  OptFiles()
      : dir_("QMX_DIR", tmp.path().c_str()),
        cfg_("QMX_CONFIG", nullptr),
        log_("QMX_LOG", nullptr),
        o(ctCLSpaceMGT) {
    optClearError(&err);
    o.optEnvVarInit();
  }
  int readSys(const std::string& text) {
    std::string p = tmp.write("qmx.sys", text);
    return o.optProcessOptions(optStoreSystem, p.c_str(), 0, &err);
  }
  int readUser(const std::string& text) {
    std::string p = tmp.write("user.opt", text);
    return o.optProcessOptions(optStoreUser, p.c_str(), 0, &err);
  }
  TempDir tmp;
  EnvVar dir_, cfg_, log_;
  clientOptions o;
  optError err;
};

TEST(OptLineReader, CommentsBlanksAndLineNumbers) {
  TempDir t;
  std::string p = t.write("f", "* comment\n\n   \n  * indented comment\nTCPPORT 1\r\n\tX  y\nlast");
  FILE* fp = fopen(p.c_str(), "r");
  ASSERT_NE(fp, nullptr);
  char buf[optLineBufSize];
  unsigned n = 0;
  ASSERT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 1);
  EXPECT_STREQ(buf, "TCPPORT 1");  // the carriage return went too
  EXPECT_EQ(n, 5u);
  ASSERT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 1);
  EXPECT_STREQ(buf, "\tX  y");
  EXPECT_EQ(n, 6u);
  ASSERT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 1);
  EXPECT_STREQ(buf, "last");  // no newline at the end of the file
  EXPECT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 0);
  fclose(fp);
}

TEST(OptLineReader, OverlongLineIsCutAndTheRestDropped) {
  TempDir t;
  std::string p = t.write("f", std::string(5000, 'A') + "\nNEXT 1\n");
  FILE* fp = fopen(p.c_str(), "r");
  char buf[optLineBufSize];
  unsigned n = 0;
  ASSERT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 1);
  EXPECT_EQ(strlen(buf), optLineBufSize - 1);
  ASSERT_EQ(utGetNextLine(fp, buf, sizeof(buf), &n), 1);
  EXPECT_STREQ(buf, "NEXT 1");
  EXPECT_EQ(n, 2u);
  fclose(fp);
}

TEST(OptText, SqueezeBeforeFirstQuoteOnly) {
  char a[] = "a   b\t\tc \"x   y\"   z";
  optSqueezeBlanks(a);
  EXPECT_STREQ(a, "a b c \"x   y\"   z");
  char b[] = "no    quotes   here";
  optSqueezeBlanks(b);
  EXPECT_STREQ(b, "no quotes here");

  char out[16];
  EXPECT_STREQ(optBuildFullName("/a", "b", '/', out, sizeof(out)), "/a/b");
  EXPECT_STREQ(optBuildFullName("/a/", "b", '/', out, sizeof(out)), "/a/b");
  EXPECT_STREQ(optBuildFullName("", "b", '/', out, sizeof(out)), "b");
  EXPECT_EQ(optBuildFullName("/a-long-directory", "name", '/', out, sizeof(out)), nullptr);
}

TEST_F(OptFiles, SystemFileStanzaChoice) {
  const char* text =
      "* the servers\n"
      "DEFAULTSERVER beta\n"
      "CHECKTHRESHOLDS 7\n"
      "\n"
      "SERVERNAME alpha\n"
      "  TCPPORT 1600\n"
      "SE beta\n"
      "  TCPPORT 1700\n"
      "  TCPSERVERADDRESS  beta.example\n"
      "SERVERNAME gamma\n"
      "  TCPPORT 1800\n";
  ASSERT_EQ(readSys(text), 0) << err.token;
  EXPECT_STREQ(o.serverName, "BETA");
  EXPECT_STREQ(o.stanzaName, "BETA");
  EXPECT_STREQ(o.migrateServer, "BETA");
  EXPECT_EQ(o.tcpPort, 1700);
  EXPECT_STREQ(o.tcpServerAddress, "BETA.EXAMPLE");
  EXPECT_EQ(o.checkThresholds, 7);
  EXPECT_EQ(o.optGetValidMode(), optSrcUser);  // after the file: 4

  // A server named before (user file, command line) wins over the default.
  clientOptions o2(ctCLSpaceMGT);
  o2.optEnvVarInit();
  ASSERT_EQ(o2.optValidateOptionCL("gamma", "SERVERNAME", 0, 1, 0), 0);
  std::string p = tmp.write("qmx2.sys", text);
  ASSERT_EQ(o2.optProcessOptions(optStoreSystem, p.c_str(), 0, &err), 0);
  EXPECT_EQ(o2.tcpPort, 1800);
  EXPECT_STREQ(o2.migrateServer, "BETA");  // the default server
}

TEST_F(OptFiles, FirstStanzaWhenNoServerIsNamed) {
  ASSERT_EQ(readSys("SERVERNAME first\n TCPPORT 1601\nSERVERNAME second\n TCPPORT 1602\n"), 0);
  EXPECT_STREQ(o.serverName, "FIRST");
  EXPECT_STREQ(o.migrateServer, "FIRST");
  EXPECT_EQ(o.tcpPort, 1601);
}

TEST_F(OptFiles, NamedServerWithoutMigrationServer) {
  ASSERT_EQ(o.optValidateOptionCL("second", "SERVERNAME", 0, 1, 0), 0);
  ASSERT_EQ(readSys("SERVERNAME first\n TCPPORT 1601\nSERVERNAME second\n TCPPORT 1602\n"), 0);
  EXPECT_STREQ(o.serverName, "SECOND");
  EXPECT_EQ(o.tcpPort, 1602);
  EXPECT_STREQ(o.migrateServer, "FIRST");  // neither migration nor default server given
}

TEST_F(OptFiles, OneLetterDoesNotOpenAStanza) {
  EXPECT_EQ(readSys("S alpha\nTCPPORT 1600\n"), 400);
  EXPECT_STREQ(err.token, "S");
  EXPECT_EQ(err.lineNumber, 1u);
}

TEST_F(OptFiles, OptionBeforeFirstStanza) {
  EXPECT_EQ(readSys("* prolog\nTCPPORT 1600\nSERVERNAME a\n"), 410);
  EXPECT_STREQ(err.token, "TCPPORT");
  EXPECT_STREQ(err.line, "TCPPORT 1600");
  EXPECT_EQ(err.lineNumber, 2u);
  EXPECT_EQ(err.rc, 410);
  EXPECT_NE(strstr(err.fileName, "qmx.sys"), nullptr);
  EXPECT_EQ(o.tcpPort, 1500);
}

TEST_F(OptFiles, StanzaNameLength) {
  std::string n64(64, 'S'), n65(65, 'T');
  ASSERT_EQ(readSys("SERVERNAME " + n64 + "\n TCPPORT 1601\n"), 0);
  EXPECT_EQ(std::string(o.serverName), n64);

  clientOptions o2(ctCLSpaceMGT);
  std::string p = tmp.write("long.sys", "SERVERNAME " + n65 + "\n TCPPORT 1601\n");
  EXPECT_EQ(o2.optProcessOptions(optStoreSystem, p.c_str(), 0, &err), 400);
  EXPECT_EQ(std::string(err.token), n65);
  EXPECT_EQ(err.lineNumber, 1u);
}

TEST_F(OptFiles, MissingStanzaIs409) {
  ASSERT_EQ(o.optValidateOptionCL("delta", "SERVERNAME", 0, 1, 0), 0);
  EXPECT_EQ(readSys("SERVERNAME alpha\n TCPPORT 1601\n"), 409);
  EXPECT_STREQ(err.token, "DELTA");
}

TEST_F(OptFiles, ErrorInStanzaKeepsEarlierValues) {
  EXPECT_EQ(readSys("SERVERNAME a\n TCPPORT 1601\n\n TCPPORT 15x\n SHMPORT 2000\n"), 400);
  EXPECT_EQ(o.tcpPort, 1601);
  EXPECT_EQ(o.shmPort, 1510);
  EXPECT_EQ(err.lineNumber, 4u);  // the blank line counts
  EXPECT_STREQ(err.token, "TCPPORT");
  EXPECT_STREQ(err.line, " TCPPORT 15x");
}

TEST_F(OptFiles, OptionNotAllowedInStanzaIsIgnored) {
  // HSMEXTOBJIDATTR belongs to the user file: message 1691, then go on.
  ASSERT_EQ(readSys("SERVERNAME a\n HSMEXTOBJIDATTR yes\n TCPPORT 1601\n"), 0);
  EXPECT_EQ(o.hsmExtObjIdAttr, 0);
  EXPECT_EQ(o.tcpPort, 1601);
}

TEST_F(OptFiles, PrescanOfSystemFile) {
  std::string p = tmp.write("pre.sys", "SERVERNAME a\n TCPPORT 1601\n HSMEXTOBJIDATTR yes\n");
  // The early pass refuses what the stanza may not hold and applies nothing
  // but the trace and option-file options.
  EXPECT_EQ(o.optPrescanSysOptFile(p.c_str(), &err), 400);
  EXPECT_STREQ(err.token, "HSMEXTOBJIDATTR");
  EXPECT_EQ(o.tcpPort, 1500);
}

TEST_F(OptFiles, UserFileReading) {
  const char* text =
      "* user options\n"
      "optionformat   short\n"
      "DATEFORMAT    3\n"
      "DOMAIN    /home     \"/my   dir\"\n"
      "TXNBYTELIMIT 2G\n"
      "TCPPORT 1600\n";  // a system-file option: 1691, ignored
  ASSERT_EQ(readUser(text), 0) << err.token << " " << err.lineNumber;
  EXPECT_EQ(o.optionFormat, 1);
  EXPECT_EQ(o.dateFormat, 3);
  ASSERT_NE(o.domain, nullptr);
  ASSERT_EQ(o.domain->size(), 2u);
  EXPECT_EQ((*o.domain)[1], "/my   dir");
  EXPECT_EQ(o.txnByteLimitUnit, 3);
  EXPECT_EQ(o.tcpPort, 1500);
  EXPECT_EQ(o.optGetSourceEntry(o.optGetOptionId("OPTIONFORMAT")), optSrcUser);
  EXPECT_TRUE(o.userOptFileOpened);
  EXPECT_NE(strstr(o.userOptFile, "user.opt"), nullptr);
}

TEST_F(OptFiles, UserFileErrors) {
  EXPECT_EQ(readUser("LOGO yes\nNOSUCH 1\nLOGO no\n"), 400);
  EXPECT_STREQ(err.token, "NOSUCH");
  EXPECT_STREQ(err.line, "NOSUCH 1");
  EXPECT_EQ(err.lineNumber, 2u);
  EXPECT_EQ(o.logo, 1);
  EXPECT_EQ(readUser("FILELIST x\n"), 400);  // keyword, not an option
  EXPECT_EQ(readUser("TRACEFILE \"/tmp/unclosed\n"), 402);
  EXPECT_EQ(err.rc, 402);
  o.setProcMode(3);
  EXPECT_EQ(o.optProcessOptions(7, "", 9, &err), 109);
  EXPECT_EQ(readUser("DATEFORMAT 1\n"), 0);
  EXPECT_EQ(o.procMode(), 3);  // the call's mode is given back
  // A directory opens but cannot be read: as unusable as a missing file.
  EXPECT_EQ(o.optProcessOptions(optStoreUser, tmp.path().c_str(), 0, &err), 406);
  EXPECT_EQ(o.optProcessOptions(optStoreSystem, tmp.path().c_str(), 0, &err), 406);
  EXPECT_EQ(err.fileName, tmp.path());
  EXPECT_EQ(o.optProcessOptions(optStoreUser, "", 0, nullptr), 109);
}

TEST_F(OptFiles, LocatingTheUserFile) {
  // No qmx.opt in QMX_DIR: not an error, defaults stand.
  EXPECT_EQ(o.optProcessOptions(optStoreUser, "", 0, &err), 0);
  EXPECT_FALSE(o.userOptFileOpened);
  // The default file in QMX_DIR is found.
  tmp.write("qmx.opt", "LOGO no\n");
  EXPECT_EQ(o.optProcessOptions(optStoreUser, "", 0, &err), 0);
  EXPECT_EQ(o.logo, 0);
  EXPECT_EQ(std::string(o.userOptFile), tmp.path() + "/qmx.opt");
  // A name from the command line must exist.
  EXPECT_EQ(o.optProcessOptions(optStoreUser, (tmp.path() + "/none.opt").c_str(), 0, &err), 406);
  EXPECT_EQ(std::string(err.fileName), tmp.path() + "/none.opt");
  {
    // So must QMX_CONFIG's.
    EnvVar cfg("QMX_CONFIG", (tmp.path() + "/missing.opt").c_str());
    clientOptions o2(ctCLSpaceMGT);
    o2.optEnvVarInit();
    EXPECT_EQ(o2.optProcessOptions(optStoreUser, "", 0, &err), 406);
    EXPECT_EQ(err.rc, 406);
    tmp.write("missing.opt", "LOGO no\n");
    EXPECT_EQ(o2.optProcessOptions(optStoreUser, "", 0, &err), 0);
  }
}

TEST_F(OptFiles, SystemFileFromOptionDirectory) {
  tmp.write("qmx.sys", "SERVERNAME x\n TCPPORT 1999\n");
  ASSERT_EQ(o.optProcessOptions(optStoreSystem, nullptr, 0, &err), 0);
  EXPECT_EQ(o.tcpPort, 1999);
  EXPECT_EQ(std::string(o.sysOptFile), tmp.path() + "/qmx.sys");
  unlink((tmp.path() + "/qmx.sys").c_str());
  EXPECT_EQ(o.optProcessOptions(optStoreSystem, nullptr, 0, &err), 406);
  EXPECT_EQ(std::string(err.fileName), tmp.path() + "/qmx.sys");
}

TEST_F(OptFiles, IncludeExcludeFile) {
  std::string ie = tmp.write("ie.list", "* rules\nEXCLUDE /tmp/*\n\nINCLUDE /data/*\n");
  ASSERT_EQ(readSys("SERVERNAME a\n INCLEXCL " + ie + "\n"), 0);
  ASSERT_EQ(o.ieList().rules().size(), 2u);
  EXPECT_EQ(o.ieList().rules()[0].source, optSrcIEFile);
  ASSERT_NE(o.inclExcl, nullptr);
  EXPECT_EQ((*o.inclExcl)[0], ie);
  std::string bad = tmp.write("bad.list", "EXCLUDE /a\nTCPPORT 1\n");
  EXPECT_EQ(readSys("SERVERNAME a\n INCLEXCL " + bad + "\n"), 400);
  EXPECT_EQ(o.lastError.lineNumber, 2u);
  EXPECT_EQ(readSys("SERVERNAME a\n INCLEXCL " + tmp.path() + "/none\n"), 406);
}

TEST_F(OptFiles, PostProcessing) {
  ASSERT_EQ(o.optPostProcessOptions(&err), 0);
  EXPECT_FALSE(o.ieList().rules().empty());
  size_t implicit = o.ieList().rules().size();
  ASSERT_EQ(o.optPostProcessOptions(&err), 0);  // not added twice
  EXPECT_EQ(o.ieList().rules().size(), implicit);
  o.errorLogMax = 100;
  o.errorLogRetention = 5;
  EXPECT_EQ(o.optPostProcessOptions(&err), 400);
  EXPECT_STREQ(err.token, "ERRORLOGRETENTION");
}

TEST(OptEnvironment, DirectoriesAndLogNames) {
  TempDir t;
  {
    EnvVar d("QMX_DIR", (t.path() + "//").c_str());
    EnvVar l("QMX_LOG", nullptr);
    clientOptions o(ctCLSpaceMGT);
    o.optEnvVarInit();
    EXPECT_EQ(std::string(o.optDir), t.path());  // trailing "/" removed
    EXPECT_EQ(std::string(o.logDir), t.path());
    EXPECT_EQ(std::string(o.errorLogName), t.path() + "/qmxerror.log");
    EXPECT_EQ(std::string(o.schedLogFullName), t.path() + "/qmxsched.log");
    EXPECT_EQ(std::string(o.auditLogFullName), t.path() + "/qmxaudit.log");
    EXPECT_EQ(std::string(o.msgFileName), t.path() + "/qmxclientv3.cat");
  }
  {
    EnvVar d("QMX_DIR", nullptr);
    EnvVar l("QMX_LOG", "/var/log/qmx/");
    EnvVar r("QMX_SYSROOT", t.path().c_str());
    clientOptions o(ctCLSpaceMGT);
    o.optEnvVarInit();
    EXPECT_EQ(std::string(o.optDir), t.path() + "/opt/norvik/nqb/client/ba/bin");
    EXPECT_EQ(std::string(o.errorLogName), "/var/log/qmx/qmxerror.log");
  }
  {
    // The programming-interface client reads its own variables.
    EnvVar d("QMX_DIR", "/ignored");
    EnvVar di("QMXI_DIR", "/api/dir");
    EnvVar l("QMX_LOG", nullptr);
    EnvVar li("QMXI_LOG", nullptr);
    EnvVar r("QMX_SYSROOT", nullptr);
    clientOptions o(ctCLAPI);
    o.optEnvVarInit();
    EXPECT_STREQ(o.optDir, "/api/dir");
    EXPECT_STREQ(o.logDir, "/api/dir");
  }
  {
    // Without QMX_DIR and QMX_LOG the logs stay with the client, never in
    // the working directory (which may be a directory the command lists).
    EnvVar d("QMX_DIR", nullptr);
    EnvVar l("QMX_LOG", nullptr);
    EnvVar r("QMX_SYSROOT", t.path().c_str());
    EnvVar pwd("PWD", "/somewhere/else");
    clientOptions o(ctCLSpaceMGT);
    o.optEnvVarInit();
    EXPECT_EQ(std::string(o.errorLogName), t.path() + "/opt/norvik/nqb/client/ba/bin/qmxerror.log");
  }
}

TEST(OptUsers, EveryoneWithoutUsersOrGroups) {
  clientOptions o(ctCLSpaceMGT);
  EXPECT_EQ(o.optCheckUser(), 403);
  o.optSetValidMode(optSrcSystem);
  ASSERT_EQ(o.optValidateOption("nobody-at-all", "USERS", 1, 1, 0), 0);
  ASSERT_NE(o.users, nullptr);
  // The superuser is never locked out; anybody else must be listed.
  EXPECT_EQ(o.optCheckUser(), geteuid() == 0 ? 403 : 0);
}

}  // namespace

namespace {

// The order start-up reads the sources in: command line (first pass), the
// early passes, the user file, command line (second pass), the system file,
// post-processing.  Later sources win; the early passes apply nothing else.
TEST_F(OptFiles, StartUpOrder) {
  tmp.write("qmx.opt",
            "* user file\n"
            "SERVERNAME beta\n"
            "DATEFORMAT 2\n"
            "ERRORPROG /bin/true\n");
  tmp.write("qmx.sys",
            "DEFAULTSERVER alpha\n"
            "SERVERNAME alpha\n"
            "   TCPPORT 1601\n"
            "SERVERNAME beta\n"
            "   TCPPORT 1602\n"
            "   NODENAME betanode\n"
            "   VIRTUALMOUNTPOINT /hsmfs/fs1/vm\n");
  ASSERT_EQ(o.optValidateOptionCL("4", "DATEFORMAT", 0, 1, 8), 0);
  ASSERT_EQ(o.optPrescanOptFile(nullptr, &err), 0);
  ASSERT_EQ(o.optPrescanSysOptFile(nullptr, &err), 0);
  EXPECT_EQ(o.tcpPort, 1500);  // the early passes set no connection options
  EXPECT_EQ(o.dateFormat, 4);  // nor anything else
  ASSERT_EQ(o.optProcessOptions(optStoreUser, "", 0, &err), 0);
  EXPECT_EQ(o.dateFormat, 2);  // the file read starts from the defaults
  ASSERT_EQ(o.optValidateOptionCL("5", "DATEFORMAT", 0, 1, 8), 0);
  ASSERT_EQ(o.optProcessOptions(optStoreSystem, "", 0, &err), 0);
  ASSERT_EQ(o.optPostProcessOptions(&err), 0);
  EXPECT_EQ(o.dateFormat, 5);
  EXPECT_STREQ(o.serverName, "BETA");  // the user file's server beats DEFAULTSERVER
  EXPECT_STREQ(o.migrateServer, "ALPHA");
  EXPECT_EQ(o.tcpPort, 1602);
  EXPECT_STREQ(o.nodeName, "BETANODE");
  ASSERT_NE(o.virtualMountPoints, nullptr);
  EXPECT_EQ((*o.virtualMountPoints)[0], "/hsmfs/fs1/vm");
  EXPECT_EQ(o.optGetSourceEntry(o.optGetOptionId("DATEFORMAT")), 255 | optSrcUser);
  EXPECT_EQ(o.optCheckUser(), 403);
  EXPECT_EQ(o.optGetValidMode(), optSrcUser);
}

}  // namespace
