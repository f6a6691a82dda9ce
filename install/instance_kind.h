// The two kinds of instances and what each is called.
#pragma once

namespace install {

enum Kind : int { kindZor = 0, kindZem = 1 };
inline constexpr Kind kinds[] = {kindZor, kindZem};

struct KindNames {
  const char* service;
  const char* profilesKey;      // below a copy's key, and in the cluster's registry
  const char* profileVariable;  // the value with the profile directory
};

inline constexpr KindNames kindNames[] = {{"ZOR", "PROFILES", "ZORINSTPROF"},
                                          {"ZEM", "ZEM_PROFILES", "ZORZEMPROF"}};

}  // namespace install
