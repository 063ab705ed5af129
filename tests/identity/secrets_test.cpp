#include <gtest/gtest.h>

#include "identity/gemini_key_manager.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

constexpr const char* service = KeychainHelper::service;
constexpr const char* legacy = KeychainHelper::legacyService;
constexpr const char* account = GeminiKeyManager::keychainKey;
constexpr const char* clearKey = "pref_geminiApiKey";

struct Vault : SimulatedWorld {
  Logger logger{dispatch, notifications};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager gemini{keychain, settings};

  std::string stored(const char* where, const std::string& key = account) {
    return secrets.load(where, key).value_or("none");
  }
  size_t warnings() { return logger.getEntries("No secret store can be written").size(); }
};

TEST(Keychain, ALegacyItemMovesWhenItIsFirstRead) {
  Vault vault;
  vault.secrets.save(legacy, "old", "1");
  vault.secrets.save(legacy, "both", "stale");
  vault.secrets.save(service, "both", "2");
  EXPECT_EQ(vault.keychain.load("old"), "1");
  EXPECT_EQ(vault.stored(service, "old") + vault.stored(legacy, "old"), "1none");
  EXPECT_EQ(vault.keychain.load("both"), "2");
  EXPECT_EQ(vault.stored(legacy, "both"), "stale");
  vault.keychain.save("3", "both");
  EXPECT_EQ(vault.stored(service, "both") + vault.stored(legacy, "both"), "3none");
  vault.secrets.save(legacy, "both", "stale");
  vault.keychain.remove("both");
  EXPECT_EQ(vault.stored(service, "both") + vault.stored(legacy, "both"), "nonenone");
}

TEST(Keychain, AsksTheStoreOnceARunAlsoForWhatIsNotThere) {
  Vault vault;
  EXPECT_EQ(vault.keychain.load("key"), std::nullopt);
  vault.secrets.save(service, "key", "from outside");
  EXPECT_EQ(vault.keychain.load("key"), std::nullopt);
  vault.faults.arm(0);
  vault.keychain.load("key");
  EXPECT_EQ(vault.faults.count(), 0);
  vault.keychain.remove("key");
  vault.secrets.save(service, "key", "again");
  EXPECT_EQ(vault.keychain.load("key"), "again");
  vault.secrets.save(service, "key", "changed");
  EXPECT_EQ(vault.keychain.load("key"), "again");
}

TEST(Keychain, WithoutAStoreAValueServesTheRunAndTheLogSaysSoOnce) {
  Vault memory;
  memory.secrets.onlyInMemory = true;
  EXPECT_EQ(memory.gemini.apiKey(), "");
  EXPECT_EQ(memory.warnings(), 0u);
  memory.settings.set(clearKey, "k0");
  EXPECT_EQ(memory.gemini.apiKey(), "k0");
  EXPECT_TRUE(memory.settings.get(clearKey)) << "the only copy that lasts";
  memory.gemini.save("k1");
  memory.gemini.save("k2");
  EXPECT_EQ(memory.gemini.apiKey(), "k2");
  EXPECT_EQ(memory.warnings(), 1u);

  Vault locked;
  locked.faults.arm(3);  // after the two removals
  locked.gemini.save("k");
  ASSERT_EQ(locked.faults.sites().at(2), "secrets.save");
  EXPECT_EQ(locked.stored(service), "none");
  EXPECT_EQ(locked.gemini.apiKey(), "k");
  EXPECT_EQ(locked.warnings(), 1u);

  Vault kept;
  kept.gemini.save("k");
  EXPECT_EQ(kept.warnings(), 0u);
}

TEST(GeminiKey, MovesOutOfTheSettingsAndReadsBackTrimmed) {
  Vault vault;
  vault.settings.set(clearKey, "\n key-1 \r\n");
  EXPECT_EQ(vault.gemini.apiKey(), "key-1");
  EXPECT_EQ(vault.stored(service), "key-1");
  EXPECT_FALSE(vault.settings.get(clearKey));

  vault.settings.set(clearKey, "key-2");
  EXPECT_EQ(vault.gemini.apiKey(), "key-1");
  vault.gemini.save("  \n ");
  EXPECT_EQ(vault.stored(service), "none");
  EXPECT_FALSE(vault.settings.get(clearKey));
  EXPECT_EQ(vault.gemini.apiKey(), "");
}

TEST(GeminiKey, AnUnreadableOrBlankItemCountsAsNone) {
  for (const Bytes& item : {Bytes("\xff\xfe"), Bytes(" \n")}) {
    Vault vault;
    vault.secrets.save(service, account, item);
    EXPECT_EQ(vault.gemini.apiKey(), "");
    vault.settings.set(clearKey, "key");
    EXPECT_EQ(vault.gemini.apiKey(), "key");
    EXPECT_EQ(vault.stored(service), "key");
  }
}

}  // namespace
}  // namespace kestrin
