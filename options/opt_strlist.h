// A growable list of texts owned by an options field of storage 10 (DOMAIN,
// VIRTUALMOUNTPOINT, USERS ...).  Not thread-safe: filled while the option
// sources are read, read-only afterwards.
#ifndef QMX_OPTIONS_OPT_STRLIST_H_
#define QMX_OPTIONS_OPT_STRLIST_H_

#include <string>
#include <vector>

class optStringList {
 public:
  // Appends |text| unless an equal entry exists (compared with case when
  // |caseSensitive|).  Returns true when added.
  bool add(const std::string& text, bool caseSensitive = true);
  bool contains(const std::string& text, bool caseSensitive = true) const;
  void clear() { items_.clear(); }
  size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  const std::string& operator[](size_t i) const { return items_[i]; }
  const std::vector<std::string>& items() const { return items_; }

 private:
  std::vector<std::string> items_;
};

#endif  // QMX_OPTIONS_OPT_STRLIST_H_
