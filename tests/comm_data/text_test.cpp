#include <devcomm/text.h>

#include "support/measure.h"

#include <algorithm>
#include <cstring>
#include <random>

TEST(Text, MemfindEqualsASlowSearch)
{
  std::mt19937 random(5);
  for (int round = 0; round < 20000; ++round)
  {
    const auto letters = 1 + random() % 4;
    std::vector<char> text(random() % 300);
    std::vector<char> what(1 + random() % (round % 2 == 0 ? 4 : 40));
    for (auto* bytes : {&text, &what})
      std::generate(bytes->begin(), bytes->end(), [&] { return char(0xFE + random() % letters); });
    if (random() % 2 == 0 && text.size() > what.size())
    {
      const size_t at = random() % (text.size() - what.size());
      memcpy(what.data(), &text[at], what.size());
    }
    const auto slow = std::search(text.begin(), text.end(), what.begin(), what.end());
    const char* place = memfind(text.data(), int(text.size()), what.data(), int(what.size()));
    ASSERT_EQ(place, slow == text.end() ? nullptr : &*slow);
  }
}

TEST(Text, MemfindStaysLinearAndRefusesBadLengths)
{
  std::vector<char> text(64 << 20, 'a');
  std::vector<char> what(16 << 20, 'a');
  what[8 << 20] = 'b'; // agrees for eight million bytes wherever it is tried: hours, if all were compared
  EXPECT_EQ(memfind(text.data(), 64 << 20, what.data(), 16 << 20), nullptr);
  char pair[] = "xa";
  EXPECT_EQ(memfind(pair, 2, "ab", 2), nullptr) << "the first byte is the last of the buffer";
  EXPECT_EQ(memfind(pair, 2, "x", 0), nullptr);
  EXPECT_EQ(memfind(pair, 2, "x", -1), nullptr);
  EXPECT_EQ(memfind(pair, -2, "x", 1), nullptr);
  const char* s = "one two";
  EXPECT_EQ(strfind_s(s, "two"), s + 4);
  EXPECT_EQ(strfind_s("", ""), nullptr);
}

TEST(Text, SplitsFieldsByCharacter)
{
  char text[] = "a, \tb,,c";
  char field[8] = "?";
  unsigned int pos = 0;
  std::vector<std::pair<std::string, unsigned int>> fields;
  while (pos < strlen(text))
  {
    EXPECT_EQ(str_split_by_char(text, ',', field, pos), 1);
    fields.emplace_back(field, pos);
  }
  const decltype(fields) expected = {{"a", 2}, {"b", 6}, {"", 7}, {"c", 8}};
  EXPECT_EQ(fields, expected);
  for (unsigned int beyond : {8U, 9U, 0xFFFFFFFFU})
  {
    pos = beyond;
    EXPECT_EQ(str_split_by_char(text, ',', field, pos), 1);
    EXPECT_EQ(pos, beyond);
    EXPECT_STREQ(field, "c") << "left as it was";
  }
}

TEST(Text, CopiesWithinBoundsAndSplitsIntoLists)
{
  char dst[10] = "zzzzzzzzz";
  EXPECT_EQ(stringcopy("abcdefghij", 10, dst, 4), dst);
  EXPECT_EQ(memcmp(dst, "abc\0zzzz", 8), 0);
  EXPECT_STREQ(stringcopy("xyzw", 3, dst, 10), "xyz");
  EXPECT_STREQ(stringcopy("abc", 3, dst, 0), "xyz") << "no room, nothing written";
  EXPECT_STREQ(stringcopy("abc", -1, dst, 10), "");

  std::vector<std::string> list;
  EXPECT_EQ(stringSplit("a::b::::", "::", list), 4);
  EXPECT_EQ(list, (std::vector<std::string>{"a", "b", "", ""}));
  EXPECT_EQ(stringSplit("whole", "", list), 1);
  EXPECT_EQ(stringSplit("", ",", list), 0);
  EXPECT_TRUE(list.empty());
}

TEST(Text, PrintsDumpsAndLocatedLines)
{
  unsigned char bytes[17];
  memset(bytes, 0xA5, sizeof bytes);
  CaptureStdout();
  printbufhex(bytes, 17);
  printbufhex(bytes, 0);
  EXPECT_EQ(GetCapturedStdout(), "\nA5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 \nA5 \n\n");

  const std::string longest(5000, 'f');
  CaptureStdout();
  EXPECT_EQ(print_function_line("a.cpp", "f", 7, "%d%%\n", 5), 0);
  print_function_line("a.cpp", "f", 7, "%s", longest.c_str());
  print_function_line(longest.c_str(), "f", 7, "%d", 1);
  EXPECT_EQ(GetCapturedStdout(),
            "a.cpp, f, 7: 5%\n" + ("a.cpp, f, 7: " + longest).substr(0, 4095) + longest.substr(0, 4095));
}

TEST(Regex, FindsGroupsAndIterates)
{
  CRegex pair;
  ASSERT_EQ(pair.Compile("([a-z]+)=([0-9]+)?", CRegex::Extended | CRegex::IgnoreCase), 0);
  EXPECT_EQ(pair.GroupCount(), 2);
  const std::string text = "Ab=12; c=; 9=9";
  std::vector<std::string> found;
  RegexGroup groups[3];
  for (int pos = 0; pair.MatchNext(text.c_str(), groups, 3, pos) == 1;)
  {
    const auto start = static_cast<size_t>(groups[1].start);
    found.push_back(text.substr(start, static_cast<size_t>(groups[1].end) - start));
  }
  EXPECT_EQ(found, (std::vector<std::string>{"Ab", "c"}));
  EXPECT_EQ(pair.Match("c=", groups, 3), 1);
  EXPECT_EQ(groups[2].start, -1) << "took no part";
  EXPECT_EQ(pair.Match("none", groups, 3), 0);

  ASSERT_EQ(pair.Compile("^a|x*", CRegex::Extended), 0);
  int matches = 0;
  int pos = 0;
  for (; pair.MatchNext("aaxa", nullptr, 0, pos) == 1; ++matches)
    ASSERT_LT(matches, 10) << "empty matches must move on";
  EXPECT_EQ(matches, 5); // a at 0, x at 2, and nothing at 1, 3 and the end
}

TEST(Regex, SurvivesPatternsThatDoNotCompile)
{
  CRegex regex;
  EXPECT_EQ(regex.Match("a", nullptr, 0), -1);
  ASSERT_EQ(regex.Compile("a", CRegex::Basic), 0);
  EXPECT_EQ(regex.Compile("(a", CRegex::Extended), -1);
  EXPECT_STRNE(regex.ErrorText(), "");
  EXPECT_EQ(regex.Match("a", nullptr, 0), -1) << "the old pattern is gone";
  EXPECT_EQ(regex.Compile(nullptr, 0), -1);
  const std::string deep(100000, '(');
  for (const char* huge :
       {deep.c_str(), "(a?){30000}", "((a?){200}){0,200}", "(((a{1,255}){1,255})*){1,255}"})
    EXPECT_EQ(regex.Compile(huge, CRegex::Extended), -1) << "would overflow the stack";
  EXPECT_EQ(regex.Compile("([0-9a-f]{4}:){7}[0-9a-f]{4}", CRegex::Extended), 0);
  EXPECT_EQ(regex.Compile("^b$", CRegex::NewLine), 0);
  EXPECT_STREQ(regex.ErrorText(), "");
  EXPECT_EQ(regex.Match("a\nb\nc", nullptr, 0), 1);
}
