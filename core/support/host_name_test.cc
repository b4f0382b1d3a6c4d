#include "core/support/host_name.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(HostNameTest, EverySpellingOfOneHostHasOneCanonicalForm) {
  using Case = std::pair<std::string, std::string>;  // host, canonical form
  for (const auto& [host, canonical] :
       {Case{"\u00e4rzte.example", "xn--rzte-koa.example"},
        Case{"\u00c4RZTE.Example.", "xn--rzte-koa.example"},
        Case{"XN--RZTE-KOA.example", "xn--rzte-koa.example"},
        Case{"a.\uff4c\uff4f\uff43\uff41\uff4c", "a.local"},    // fullwidth letters
        Case{"x.printer\uff0elocal", "x.printer.local"},        // fullwidth full stop
        Case{"x.printer\u3002local\u3002", "x.printer.local"},  // ideographic full stop
        Case{"nas.\uff2c\uff21\uff2e.home", "nas.lan.home"},
        Case{"\uff11\uff12\uff17.0.0.1", "127.0.0.1"},
        Case{"fa\u00df.de", "xn--fa-hia.de"},  // non-transitional: ß is kept, not "ss"
        Case{"..Example.ORG..", "example.org"}}) {
    EXPECT_EQ(canonicalHost(host), canonical) << host;
  }
}

TEST(HostNameTest, HostsWithoutACanonicalFormAreAbsent) {
  for (const std::string& host : {std::string("\xff.example"), std::string("xn--zz.example"),
                                 std::string("xn--.org"), std::string("a\0.\u00e4.org", 9)}) {
    EXPECT_FALSE(canonicalHost(host)) << host;
  }
}

TEST(HostNameTest, PlainASCIIHostsSkipTheConversion) {
  EXPECT_TRUE(isPlainASCIIHost("mail.example.org"));
  EXPECT_TRUE(isPlainASCIIHost("axn--b.org"));  // not at a label start
  EXPECT_FALSE(isPlainASCIIHost("a.XN--rzte-koa.example"));
  EXPECT_FALSE(isPlainASCIIHost("\u00e4.org"));
}

}  // namespace
}  // namespace velto
