#include "hsm/dmapi/dmapi_binding.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "diag/trace.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"
#include "testing/check.h"
#include "testing/files.h"

namespace {

class BindingTest : public ProviderSandbox {};

TEST_F(BindingTest, LoadedProviderWorksOnTheSameRegistryAsTheBuiltIn) {
  dmapiBinding_t lib{};
  std::string error;
  ASSERT_EQ(dmBindLibrary(QMX_TEST_PROVIDER_SO, &lib, &error), 0) << error;
  // Every function came from the library, not from this program's copy.
  EXPECT_NE(reinterpret_cast<void*>(lib.get_dmattr), reinterpret_cast<void*>(&qmxdm_get_dmattr));
  ASSERT_NE(lib.handle_to_path, nullptr);

  char* version = nullptr;
  ASSERT_EQ(lib.init_service(&version), 0);
  EXPECT_STREQ(version, "VEXA DMAPI 3.40");
  char info[] = "through-dlopen";
  dm_sessid_t sid = DM_NO_SESSION;
  ASSERT_TRUE(QMX_SYSCALL_OK(lib.create_session(DM_NO_SESSION, info, &sid)));

  // Both copies keep their sessions and attributes in the same places.
  dmapiBinding_t own{};
  dmBindBuiltIn(&own);
  char buf[64];
  size_t rlen = 0;
  ASSERT_EQ(own.query_session(sid, sizeof buf, buf, &rlen), 0);
  EXPECT_STREQ(buf, "through-dlopen");

  std::string path = makeFile("f");
  void* h = nullptr;
  size_t hl = 0;
  ASSERT_EQ(lib.path_to_handle(path.data(), &h, &hl), 0);
  dm_attrname_t an = attrName("KVRObj");
  char value[] = "record";
  ASSERT_EQ(lib.set_dmattr(sid, h, hl, DM_NO_TOKEN, &an, 0, 6, value), 0);
  ASSERT_EQ(own.get_dmattr(sid, h, hl, DM_NO_TOKEN, &an, sizeof buf, buf, &rlen), 0);
  EXPECT_EQ(std::string(buf, rlen), "record");
  lib.handle_free(h, hl);
  EXPECT_EQ(lib.destroy_session(sid), 0);
}

TEST_F(BindingTest, LibraryThatCannotServeIsAClearFailure) {
  dmapiBinding_t t{};
  std::string error;
  EXPECT_EQ(dmBindLibrary(QMX_TEST_INCOMPLETE_SO, &t, &error), -1);
  EXPECT_NE(error.find(QMX_TEST_INCOMPLETE_SO), std::string::npos) << error;
  EXPECT_NE(error.find("lacks the function dm_create_session"), std::string::npos) << error;

  error.clear();
  std::string missing = root_ + "/no-such-libdmapi.so";
  EXPECT_EQ(dmBindLibrary(missing.c_str(), &t, &error), -1);
  EXPECT_NE(error.find("cannot load DMAPI library " + missing), std::string::npos) << error;
}

TEST_F(BindingTest, ChoiceFollowsTheEnvironmentWithoutFallingBack) {
  dmapiBinding_t t{};
  std::string which, error;
  ASSERT_EQ(dmChooseProvider(QMX_TEST_PROVIDER_SO, &t, &which, &error), 0) << error;
  EXPECT_EQ(which, std::string("QMX_DMAPI_LIB=") + QMX_TEST_PROVIDER_SO);

  // A named library that fails is the end of it, never our own provider.
  t = dmapiBinding_t{};
  EXPECT_EQ(dmChooseProvider(QMX_TEST_INCOMPLETE_SO, &t, &which, &error), -1);
  EXPECT_EQ(t.init_service, nullptr);
  EXPECT_NE(error.find("lacks the function"), std::string::npos);
  EXPECT_EQ(dmChooseProvider("", &t, &which, &error), -1);
  EXPECT_NE(error.find("QMX_DMAPI_LIB"), std::string::npos);

  // Unset: the system's library when there is one, else the built-in.
  ASSERT_EQ(dmChooseProvider(nullptr, &t, &which, &error), 0);
  void* sys = dlopen("libdmapi.so", RTLD_NOW | RTLD_LOCAL);
  if (sys != nullptr) {
    dlclose(sys);
    EXPECT_EQ(which, "libdmapi.so");
  } else {
    EXPECT_EQ(which, "built-in provider");
    EXPECT_EQ(t.get_dmattr, &qmxdm_get_dmattr);
  }
}

TEST_F(BindingTest, ProcessBindingIsMadeOnceFromQmxDmapiLib) {
  std::string traceFile = root_ + "/trace.out";
  // In children: the process-wide binding can be made only once per process.
  pid_t child = qmxtest::forkChild([&] {
    setenv("QMX_DMAPI_LIB", QMX_TEST_PROVIDER_SO, 1);
    new_TraceObject(ctCLSpaceMGT, 0, nullptr);
    if (trBegin(traceFile.c_str(), 0) != 0 || trEnable("DMI", 1) != 0) return 4;
    std::string which, error;
    const dmapiBinding_t* b = dmBindProvider(&which, &error);
    trClose(0);
    if (b == nullptr || which != std::string("QMX_DMAPI_LIB=") + QMX_TEST_PROVIDER_SO) return 1;
    // Changing the environment later changes nothing.
    setenv("QMX_DMAPI_LIB", QMX_TEST_INCOMPLETE_SO, 1);
    if (dmBindProvider(nullptr, nullptr) != b) return 2;
    char* version = nullptr;
    return b->init_service(&version) == 0 && std::strcmp(version, "VEXA DMAPI 3.40") == 0 ? 0 : 3;
  });
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
  std::string text = qmxtest::readFile(traceFile);
  EXPECT_NE(text.find(std::string(":dmBindProvider): DMAPI provider: QMX_DMAPI_LIB=") +
                      QMX_TEST_PROVIDER_SO),
            std::string::npos)
      << text;

  child = qmxtest::forkChild([] {
    setenv("QMX_DMAPI_LIB", QMX_TEST_INCOMPLETE_SO, 1);
    std::string error;
    if (dmBindProvider(nullptr, &error) != nullptr) return 1;
    std::string again;
    if (dmBindProvider(nullptr, &again) != nullptr || again != error) return 2;
    return error.find("lacks the function") != std::string::npos ? 0 : 3;
  });
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
}

}  // namespace
