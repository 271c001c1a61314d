#include "hsm/cmd/dsc_mig_attr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "diag/globalrc.h"
#include "diag/mempool.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/cmd_stdout.h"
#include "hsm/cmd/dir_list.h"
#include "hsm/cmd/hsm_file_list.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/hsm_startup.h"
#include "hsm/cmd/spaceman_state.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_session.h"
#include "options/optobj.h"
#include "platform/file_space.h"
#include "platform/platform_status.h"
#include "platform/sysroot.h"

namespace {

// Longest operand or path the command accepts (the path buffers hold 1279
// characters and the terminator).
constexpr size_t kMaxPath = 1278;
constexpr size_t kCwdSize = 1025;

bool Tracing() {
  return TR_GENERAL || TR_SM;
}

const char* LastName(const char* path) {
  const char* s = std::strrchr(path, '/');
  return s != nullptr ? s + 1 : path;
}

bool ShortFormat() {
  return optionsP != nullptr && optionsP->optionFormat != 0;
}

// The caller may change |uid|'s files: root may change any.
bool MayChange(uid_t owner) {
  uid_t me = getuid();
  return me == 0 || owner == me;
}

// Reads the entries of |dir| into a new pool.  Returns the pool (0 when it
// could not be made) and the entries in *head (null when the directory
// could not be read; message 9126 then).
mpHandle_t ReadDirectory(const dirReadHandle_t* handle, const char* dir, dirEntry_t** head) {
  *head = nullptr;
  mpHandle_t pool = qmxpCreate(handle->chunkKB);
  if (pool == 0) return 0;
  if (fioGetDirEntries2(dir, dirListPoolAlloc, &pool, head) != 0) {
    int e = errno;
    nlfprintf(stderr, 9126, hsmWhoAmI(), dir, std::strerror(e));
    *head = nullptr;
  }
  return pool;
}

// The process's DMAPI session, obtained on first need.  0 when there is
// none (message 9178 then).
uint64_t SessionForQuery() {
  uint64_t sid = optionsP->dmapiSessionId;
  if (sid != 0) return sid;
  sid = dmiGetSid();
  if (sid == 0) {
    nlfprintf(stderr, 9178, hsmWhoAmI(), "/dev/fsm", std::strerror(errno));
    return 0;
  }
  optionsP->dmapiSessionId = sid;
  return sid;
}

}  // namespace

const char* migAttrLetter(unsigned code) {
  switch (code) {
    case 0:
      return "n";
    case 1:
      return "r";
    case 2:
      return "m";
    case 4:
      return "s";
    case 8:
      return "p";
    default:
      return "?";
  }
}

unsigned migAttrCode(unsigned char parserMode) {
  switch (parserMode) {
    case 1:
      return 0;
    case 3:
      return 1;
    case 2:
      return 2;
    case 5:
      return 8;
    case 4:
      return 4;
    default:
      return 0;
  }
}

int QueryFileAttr(const char* path) {
  migAttrRequest req;
  std::memset(&req, 0, sizeof req);
  req.operation = migAttrQuery;
  uint64_t sid = SessionForQuery();
  if (sid == 0) return -1;
  int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    nlfprintf(stderr, 9178, hsmWhoAmI(), path, std::strerror(errno));
    return -1;
  }
  std::snprintf(req.path, sizeof req.path, "%s", path);
  req.fd = fd;
  int rc = dmiEntryFileAttributes(sid, &req);
  close(fd);
  const char* letter = rc == 0 ? migAttrLetter(req.value & 0xFF) : "-";
  std::printf("%5s   %s\n", letter, LastName(path));
  return 0;
}

int SetFileAttr(const char* path) {
  migAttrRequest req;
  std::memset(&req, 0, sizeof req);
  req.operation = migAttrSet;
  if (optionsP->dmapiSessionId == 0) {
    // An old way of getting a session: the descriptor of the HSM device
    // stands for it.  Only a result of exactly 0 counts as failure; -1 is
    // stored as all ones, which the DMAPI layer takes as "the process's
    // session".
    int dev = open(psSysPath("/dev/fsm").c_str(), O_RDWR | O_CLOEXEC);
    if (dev == 0) {
      nlfprintf(stderr, 9178, hsmWhoAmI(), "/dev/fsm", std::strerror(errno));
      return -1;
    }
    optionsP->dmapiSessionId = static_cast<uint64_t>(static_cast<int64_t>(dev));
  }
  int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    nlfprintf(stderr, 9178, hsmWhoAmI(), path, std::strerror(errno));
    return -1;
  }
  req.mask = 255;
  req.value = migAttrCode(HSMGlobalCB::GetHsmCB()->recallMode);
  std::snprintf(req.path, sizeof req.path, "%s", path);
  req.fd = fd;
  int rc = dmiEntryFileAttributes(optionsP->dmapiSessionId, &req);
  int e = errno;
  close(fd);
  if (rc == 0) {
    nlfprintf(stdout, 9033, path);
    return rc;
  }
  switch (e) {
    case EBADF:
      nlfprintf(stderr, 9032, path);
      break;
    case EACCES:
      nlfprintf(stderr, 9031, path);
      break;
    case EPERM:
      nlfprintf(stderr, 9030, path);
      break;
    case EBUSY:
      nlfprintf(stderr, 9178, hsmWhoAmI(), path, "The file is being migrated or recalled");
      break;
    case EINVAL:
      std::fprintf(stderr,
                   "Can't set recall mode of %s to partial, migrated file is or may be "
                   "compressed.\n",
                   path);
      break;
    default:
      break;
  }
  errno = e;
  return rc;
}

int smMigAttr(const dirReadHandle_t* handle, const char* dirPath, const dirEntry_t* entries,
              int header) {
  if (header) {
    nlfprintf(stdout, 9219);
    nlfprintf(stdout, 9205, dirPath);
  }
  if (entries == nullptr) return 0;
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  std::string full;
  // A user's queries go through the root daemon, a round trip each; one
  // call for the whole directory brings every file's answers at once.
  if (cb->queryMode && getuid() != 0) {
    for (const dirEntry_t* e = entries; e != nullptr; e = e->next) {
      if (!attrIsPlainFile(e->attr)) continue;
      int err = errno;
      dmiPrefetchDirAttributes(dirPath);  // a failure only costs speed
      errno = err;
      break;
    }
  }
  // Files first, in list order; subdirectories only afterwards, so that a
  // directory's files are all shown before any deeper level.
  for (const dirEntry_t* e = entries; e != nullptr && !cmdStdoutFailed(); e = e->next) {
    const char* name = e->name + 1;
    if (attrIsDir(e->attr)) {
      std::printf("%5s   %s/\n", "<dir>", name);
      continue;
    }
    if (!attrIsPlainFile(e->attr)) {
      std::printf("%5s   %s\n", "-", name);
      continue;
    }
    full.assign(dirPath).append(e->name);
    if (full.size() > kMaxPath) {
      nlfprintf(stderr, 14031, full.c_str(), "", "");
      continue;
    }
    if (cb->queryMode) {
      QueryFileAttr(full.c_str());
    } else {
      if (!MayChange(e->attr.uid)) {
        nlfprintf(stderr, 9096, full.c_str(), "", "");
        return CMD_RC_NOTOWNER;
      }
      SetFileAttr(full.c_str());
    }
  }
  if (optionsP->subdir != 1) return 0;
  for (const dirEntry_t* e = entries; e != nullptr && !cmdStdoutFailed(); e = e->next) {
    if (!attrIsDir(e->attr)) continue;
    full.assign(dirPath).append(e->name);
    dirEntry_t* sub = nullptr;
    mpHandle_t pool = ReadDirectory(handle, full.c_str(), &sub);
    // The outcome of a subtree does not stop its siblings.
    smMigAttr(handle, full.c_str(), sub, 1);
    if (pool != 0) qmxpDestroy(pool);
  }
  return 0;
}

int DscMigAttr(Sess_o* sess) {
  (void)sess;
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  HsmFileList fileList(cb);
  const dirReadHandle_t handle{16};

  if (cb->helpRequested) {
    nlprintf(ShortFormat() ? 9139 : 9138);
    return 0;
  }
  char cwd[kCwdSize];
  if (getcwd(cwd, sizeof cwd) == nullptr) return CMD_EXIT_FAILED;

  int rc = fileList.init();
  if (rc != 0) {
    if (Tracing()) trPrintf(__FILE__, __LINE__, "filelist initialization failed. rc= %d\n", rc);
    // The list has said why it can't be used.
    if (rc == CMD_RC_FILELIST) nlfprintf(stderr, 9219);
    return CMD_EXIT_FAILED;
  }

  uint64_t sid = dmiGetSid();
  if (sid == 0) {
    nlfprintf(stderr, 9178, hsmWhoAmI(), "/dev/fsm", std::strerror(errno));
    return CMD_EXIT_FAILED;
  }
  optionsP->dmapiSessionId = sid;

  const bool noOperands = fileList.isEmpty();
  if (cb->queryMode) {
    nlfprintf(stdout, 9329);
  } else if (noOperands) {
    nlprintf(1079);
    return CMD_EXIT_NOOPERAND;
  }

  int result = 0;
  mpHandle_t dirPool = 0;
  std::optional<DirList> dirs;
  int stop = 0;  // a result that ends the operand loop at once
  char path[kMaxPath + 2];

  const char* operand = noOperands ? cwd : fileList.getNextItem();
  while (operand != nullptr && stop == 0) {
    size_t len = std::strlen(operand);
    if (len > kMaxPath) {
      nlfprintf(stderr, 14031, operand, "", "");
    } else if (operand[0] != '/' && operand[0] != '{' &&
               std::strlen(cwd) + 1 + len >= kMaxPath + 1) {
      nlfprintf(stderr, 14031, operand, "", "");
    } else {
      // Both forms fit: their lengths were checked above.
      std::string joined = operand[0] != '/' && operand[0] != '{'
                               ? std::string(cwd).append("/").append(operand)
                               : std::string(operand);
      std::memcpy(path, joined.c_str(), joined.size() + 1);
      DoCanon(path, '/');
      int prc = 0;
      fileSpec_t* fsp = parseBackOperand(path, &prc, 0);
      result = prc;
      if (Tracing()) {
        if (fsp != nullptr) {
          trPrintf(__FILE__, __LINE__, "Input operand (%s) breaks down to '%s' '%s' '%s'\n", path,
                   fsp->fsName, fsp->hl, fsp->ll);
        } else {
          trPrintf(__FILE__, __LINE__, "fileSpec == NULL\n");
        }
      }
      if (fsp == nullptr) {
        if (prc == PS_RC_NOMEM) {
          nlfprintf(stdout, 9184, hsmWhoAmI(), "");
          stop = CMD_EXIT_NOMEM;
        } else {
          // A name the file layer can't split (the "{file space}" form):
          // skipped with its message, which alone decides the outcome.
          nlfprintf(stderr, 1081, path);
          result = 0;
        }
      } else {
        if (Tracing()) {
          trPrintf(__FILE__, __LINE__, "Candidate (%s) breaks down to '%s' '%s' '%s'\n", path,
                   fsp->fsName, fsp->hl, fsp->ll);
        }
        if (qmxSpaceManIsInstalled(fsp->fsName) != 0) {
          nlfprintf(stderr, 9085, hsmWhoAmI(), fsp->fsName);
        } else {
          Attrib attr;
          result = fioGetAttrib(fsp, &attr, 0);
          if (result != 0) {
            nlfprintf(stderr, 9126, hsmWhoAmI(), path, std::strerror(errno));
          } else {
            HPsFileAttributes fa;
            fa.setFileAttributes(&attr, path, fsp->fsName);
            if (attrIsDir(attr)) {
              if (!noOperands) std::printf("%5s   %s/\n", "<dir>", LastName(path));
              if (dirPool == 0) {
                dirPool = qmxpCreate(4);
                if (dirPool == 0) {
                  nlfprintf(stdout, 9184, hsmWhoAmI(), "");
                  stop = CMD_EXIT_NOMEM;
                } else {
                  dirs.emplace(dirPool);
                }
              }
              // A path that can't be stored is dropped: its listing is lost,
              // the rest goes on.
              if (dirs) dirs->insert(path);
            } else if (!attrIsPlainFile(attr)) {
              std::printf("%5s   %s\n", "-", LastName(path));
            } else if (cb->queryMode) {
              result = QueryFileAttr(path);
            } else if (!MayChange(fa.getAduUserId())) {
              nlfprintf(stderr, 9096, path, "", "");
              stop = CMD_RC_NOTOWNER;
            } else {
              result = SetFileAttr(path);
            }
          }
        }
        freeFileSpec(fsp);
      }
    }
    if (noOperands || cmdStdoutFailed()) break;
    if (stop == 0) operand = fileList.getNextItem();
  }
  // Names the list could not give were not worked on: the run failed.
  if (stop == 0 && fileList.failed()) stop = CMD_EXIT_FAILED;

  if (stop == 0 && dirs) {
    for (const dirListNode_t* n = dirs->head(); n != nullptr && stop == 0 && !cmdStdoutFailed();
         n = n->next) {
      fileSpec_t* fsp = newFileSpec("", n->path, "");
      dirEntry_t* entries = nullptr;
      mpHandle_t pool = ReadDirectory(&handle, n->path, &entries);
      freeFileSpec(fsp);
      int r = smMigAttr(&handle, n->path, entries, 1);
      if (pool != 0) qmxpDestroy(pool);
      if (r != 0) stop = r;
    }
  }
  if (dirPool != 0) qmxpDestroy(dirPool);
  if (stop != 0) return stop;
  if (result != 0 || TEST_DISABLECONSISTENTRC.set) return result;
  return gRC != nullptr ? gRC->getMax() : 0;
}
