// Thread-specific values of fibres.
#pragma once

#include <memory>

namespace rack {

struct KeyValue {
  unsigned use;  // of the key, when the value was set
  void* value;
};

class KeyValues {
 public:
  void* Get(unsigned key) const;
  // False: no memory.
  bool Set(unsigned key, void* value);
  // The thread ends: what was set is given to the destructors of its keys.
  void Destroy();

 private:
  std::unique_ptr<KeyValue[]> values_;  // null until one is set
};

// Of the calling thread; null: it is no fibre, or the first one.
KeyValues* OwnKeyValues();

}  // namespace rack
