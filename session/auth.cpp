#include "session/auth.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

bool Mac(const unsigned char* key, size_t keyLen, const std::vector<unsigned char>& data,
         unsigned char out[32]) {
  unsigned int len = 0;
  return HMAC(EVP_sha256(), key, static_cast<int>(keyLen), data.data(), data.size(), out, &len) !=
             nullptr &&
         len == 32;
}

std::vector<unsigned char> Message(const char label[4], const authNonce_t& first,
                                   const authNonce_t& second, const std::string& node) {
  std::vector<unsigned char> m(label, label + 4);
  m.insert(m.end(), first.begin(), first.end());
  m.insert(m.end(), second.begin(), second.end());
  m.insert(m.end(), node.begin(), node.end());
  return m;
}

bool SealKey(const authVerifier_t& oldV, const authNonce_t& sn, const authNonce_t& cn,
             unsigned char key[32]) {
  return Mac(oldV.data(), oldV.size(), Message("QUP1", sn, cn, std::string()), key);
}

using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

}  // namespace

bool authDeriveVerifier(const std::string& password, const unsigned char* salt, size_t saltLen,
                        uint32_t iterations, authVerifier_t* out) {
  return PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt,
                           static_cast<int>(saltLen), static_cast<int>(iterations), EVP_sha256(),
                           static_cast<int>(out->size()), out->data()) == 1;
}

bool authRandom(unsigned char* buf, size_t len) {
  return RAND_bytes(buf, static_cast<int>(len)) == 1;
}

bool authClientResponse(const authVerifier_t& v, const authNonce_t& serverNonce,
                        const authNonce_t& clientNonce, const std::string& node, authMac_t* out) {
  return Mac(v.data(), v.size(), Message("QAU1", serverNonce, clientNonce, node), out->data());
}

bool authServerProof(const authVerifier_t& v, const authNonce_t& serverNonce,
                     const authNonce_t& clientNonce, const std::string& node, authMac_t* out) {
  return Mac(v.data(), v.size(), Message("QSV1", clientNonce, serverNonce, node), out->data());
}

bool authMacEqual(const authMac_t& a, const authMac_t& b) {
  return CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

bool authSealVerifier(const authVerifier_t& oldVerifier, const authNonce_t& serverNonce,
                      const authNonce_t& clientNonce, const std::string& node,
                      const authVerifier_t& newVerifier, unsigned char iv[AUTH_IV_LEN],
                      unsigned char cipher[AUTH_VERIFIER_LEN], unsigned char tag[AUTH_TAG_LEN]) {
  unsigned char key[32];
  if (!SealKey(oldVerifier, serverNonce, clientNonce, key) || !authRandom(iv, AUTH_IV_LEN))
    return false;
  CipherCtx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  int len = 0;
  bool ok = ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key, iv) == 1 &&
            EVP_EncryptUpdate(ctx.get(), nullptr, &len,
                              reinterpret_cast<const unsigned char*>(node.data()),
                              static_cast<int>(node.size())) == 1 &&
            EVP_EncryptUpdate(ctx.get(), cipher, &len, newVerifier.data(),
                              static_cast<int>(newVerifier.size())) == 1 &&
            EVP_EncryptFinal_ex(ctx.get(), cipher + len, &len) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, AUTH_TAG_LEN, tag) == 1;
  authWipe(key, sizeof key);
  return ok;
}

bool authOpenVerifier(const authVerifier_t& oldVerifier, const authNonce_t& serverNonce,
                      const authNonce_t& clientNonce, const std::string& node,
                      const unsigned char iv[AUTH_IV_LEN],
                      const unsigned char cipher[AUTH_VERIFIER_LEN],
                      const unsigned char tag[AUTH_TAG_LEN], authVerifier_t* newVerifier) {
  unsigned char key[32];
  if (!SealKey(oldVerifier, serverNonce, clientNonce, key)) return false;
  CipherCtx ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  unsigned char tagCopy[AUTH_TAG_LEN];
  std::memcpy(tagCopy, tag, AUTH_TAG_LEN);
  int len = 0;
  bool ok = ctx && EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key, iv) == 1 &&
            EVP_DecryptUpdate(ctx.get(), nullptr, &len,
                              reinterpret_cast<const unsigned char*>(node.data()),
                              static_cast<int>(node.size())) == 1 &&
            EVP_DecryptUpdate(ctx.get(), newVerifier->data(), &len, cipher,
                              static_cast<int>(AUTH_VERIFIER_LEN)) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, AUTH_TAG_LEN, tagCopy) == 1 &&
            EVP_DecryptFinal_ex(ctx.get(), newVerifier->data() + len, &len) == 1;
  authWipe(key, sizeof key);
  if (!ok) authWipe(newVerifier->data(), newVerifier->size());
  return ok;
}

void authWipe(void* p, size_t len) {
  OPENSSL_cleanse(p, len);
}

std::string authGeneratePassword(size_t len) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-_.";
  constexpr size_t kCount = sizeof kAlphabet - 1;  // 66
  std::string out;
  out.reserve(len);
  while (out.size() < len) {
    unsigned char b[32];
    if (!authRandom(b, sizeof b)) return std::string();
    // Bytes beyond the largest multiple of the alphabet size are dropped so
    // that every character is equally likely.
    for (unsigned char c : b)
      if (c < (256 / kCount) * kCount && out.size() < len) out.push_back(kAlphabet[c % kCount]);
    authWipe(b, sizeof b);
  }
  return out;
}
