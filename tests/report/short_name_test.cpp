// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/short_name.h"

#include <gtest/gtest.h>

namespace quarl::report {
namespace {

struct Case {
  const char* whole;
  const char* brief;
};

TEST(ShortName, LeavesOutArgumentsOfTemplatesThenParameters) {
  const Case cases[] = {
      {"int parse<std::string>(std::vector<int> const&)", "int parse<std::string>(std::vector<int> const&)"},
      {"std::vector<std::__cxx11::basic_string<char>, std::allocator<int> >::reserve(unsigned int)",
       "std::vector<...>::reserve(unsigned int)"},
      {"void app::Store<int, app::Policy<(bool)1> >::insert_or_replace(app::Key const&, app::Value const&, "
       "app::Reason)",
       "void app::Store<...>::insert_or_replace(...)"},
      {"std::ostream& operator<< <std::char_traits<char>, std::allocator<char> >(std::ostream&, char const*, int)",
       "std::ostream& operator<< <...>(...)"},
      {"app::(anonymous namespace)::Table<app::Row<1>, app::Column<2>, app::Cell<3>, 4>::operator()(int) const",
       "app::(anonymous namespace)::Table<...>::operator()(...) const"},
      {"app::Smart<app::Pointer<app::To<app::Something<app::Else, 12345>>>>::operator->() const",
       "app::Smart<...>::operator->() const"},
      {"bool app::operator< <app::Key, app::Value, app::Reason>(app::Pair<app::Key> const&, app::Pair<app::Key> "
       "const&, int)",
       "bool app::operator< <...>(...)"},
      {"void call<int (*)(char)>(std::function<int (char)>, app::Smart<app::Pointer<app::To>>, char**)",
       "void call<...>(std::function<...>, app::Smart<...>, char**)"},
      {"a_name_that_is_no_template_and_has_no_parameters_but_more_bytes_than_sixty",
       "a_name_that_is_no_template_and_has_no_parameters_but_more_bytes_than_sixty"},
      {"a<name<that((nobody::takes::apart<because::it::is<cut::off::in::the::middle::of",
       "a<name<that((nobody::takes::apart<because::it::is<cut::off::in::the::middle::of"},
  };
  for (const Case& each : cases) EXPECT_EQ(short_name(each.whole), each.brief);
}

}  // namespace
}  // namespace quarl::report
