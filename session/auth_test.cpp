#include "session/auth.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

namespace {

authNonce_t Nonce(unsigned char seed) {
  authNonce_t n;
  for (size_t i = 0; i < n.size(); ++i) n[i] = static_cast<unsigned char>(seed + i);
  return n;
}

TEST(AuthVerifier, DerivationMatchesThePublishedVector) {
  // PBKDF2-HMAC-SHA-256, password "passwd", salt "salt", one iteration.
  const unsigned char salt[] = {'s', 'a', 'l', 't'};
  authVerifier_t v;
  ASSERT_TRUE(authDeriveVerifier("passwd", salt, sizeof salt, 1, &v));
  const unsigned char expect[32] = {0x55, 0xac, 0x04, 0x6e, 0x56, 0xe3, 0x08, 0x9f,
                                    0xec, 0x16, 0x91, 0xc2, 0x25, 0x44, 0xb6, 0x05,
                                    0xf9, 0x41, 0x85, 0x21, 0x6d, 0xde, 0x04, 0x65,
                                    0xe6, 0x8b, 0x9d, 0x57, 0xc2, 0x0d, 0xac, 0xbc};
  EXPECT_EQ(0, std::memcmp(expect, v.data(), 32));
  authVerifier_t w;
  ASSERT_TRUE(authDeriveVerifier("passwd", salt, sizeof salt, 2, &w));
  EXPECT_NE(v, w);  // the iteration count matters
}

TEST(AuthChallenge, ResponsesAreBoundToNoncesNodeAndDirection) {
  const unsigned char salt[] = {1, 2, 3, 4, 5, 6, 7, 8};
  authVerifier_t v;
  ASSERT_TRUE(authDeriveVerifier("pw", salt, sizeof salt, 1000, &v));
  authMac_t a, b, c, d, proof;
  ASSERT_TRUE(authClientResponse(v, Nonce(1), Nonce(2), "NODE1", &a));
  ASSERT_TRUE(authClientResponse(v, Nonce(1), Nonce(2), "NODE1", &b));
  EXPECT_TRUE(authMacEqual(a, b));
  ASSERT_TRUE(authClientResponse(v, Nonce(3), Nonce(2), "NODE1", &c));
  EXPECT_FALSE(authMacEqual(a, c));  // another server nonce: no replay
  ASSERT_TRUE(authClientResponse(v, Nonce(1), Nonce(2), "NODE2", &d));
  EXPECT_FALSE(authMacEqual(a, d));
  ASSERT_TRUE(authServerProof(v, Nonce(1), Nonce(2), "NODE1", &proof));
  EXPECT_FALSE(authMacEqual(a, proof));  // the server's answer is not the client's
}

TEST(AuthSeal, NewVerifierOpensOnlyUnchanged) {
  authVerifier_t oldV{}, newV{}, out{};
  oldV.fill(7);
  for (size_t i = 0; i < newV.size(); ++i) newV[i] = static_cast<unsigned char>(i);
  unsigned char iv[AUTH_IV_LEN], cipher[AUTH_VERIFIER_LEN], tag[AUTH_TAG_LEN];
  ASSERT_TRUE(authSealVerifier(oldV, Nonce(1), Nonce(2), "N", newV, iv, cipher, tag));
  EXPECT_NE(0, std::memcmp(cipher, newV.data(), sizeof cipher));
  ASSERT_TRUE(authOpenVerifier(oldV, Nonce(1), Nonce(2), "N", iv, cipher, tag, &out));
  EXPECT_EQ(newV, out);

  unsigned char bad[AUTH_VERIFIER_LEN];
  std::memcpy(bad, cipher, sizeof bad);
  bad[5] ^= 1;
  EXPECT_FALSE(authOpenVerifier(oldV, Nonce(1), Nonce(2), "N", iv, bad, tag, &out));
  EXPECT_FALSE(authOpenVerifier(oldV, Nonce(1), Nonce(2), "M", iv, cipher, tag, &out));
  EXPECT_FALSE(authOpenVerifier(oldV, Nonce(9), Nonce(2), "N", iv, cipher, tag, &out));
  authVerifier_t otherOld = oldV;
  otherOld[0] ^= 1;
  EXPECT_FALSE(authOpenVerifier(otherOld, Nonce(1), Nonce(2), "N", iv, cipher, tag, &out));
}

TEST(AuthPasswords, GeneratedPasswordsArePrintableAndDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 20; ++i) {
    std::string p = authGeneratePassword(24);
    ASSERT_EQ(24u, p.size());
    for (char c : p)
      EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || std::strchr("+-_.", c)) << p;
    seen.insert(p);
  }
  EXPECT_EQ(20u, seen.size());
}

}  // namespace
