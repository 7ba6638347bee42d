#include "prepare/parts/given_matrix.h"

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/csv_columns.h"
#include "prepare/tables/readable_file.h"
#include "prepare/tables/text_encoding.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>

extern "C" {
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info);
void dpotri_(const char* uplo, const int* n, double* a, const int* lda, int* info);
void dpocon_(const char* uplo, const int* n, const double* a, const int* lda, const double* anorm,
             double* rcond, double* work, int* iwork, int* info);
void dsyevr_(const char* jobz, const char* range, const char* uplo, const int* n, double* a, const int* lda,
             const double* vl, const double* vu, const int* il, const int* iu, const double* abstol, int* m,
             double* w, double* z, const int* ldz, int* isuppz, double* work, const int* lwork, int* iwork,
             const int* liwork, int* info);
}

namespace zeph::prepare {

namespace {

constexpr double near_singular = 1e-6;    // smallest eigenvalue over mean diagonal
constexpr double eigenvalue_noise = 1e-8; // rounding of a matrix that is singular by its making
constexpr double default_blend = 0.05;
constexpr double alike = 1e-8; // relative difference of the two triangles of a text file

// A line of the file with its words.
struct word_line {
  std::int64_t line = 0;
  std::string_view text;
};

// Next word of `text`, taken off; words are separated by blanks, tabs, commas or semicolons, or are in
// quotes.
bool take_word(std::string_view& text, std::string_view& word) {
  constexpr std::string_view separators = " \t,;";
  const std::size_t begin = text.find_first_not_of(separators);
  if (begin == std::string_view::npos) return false;
  const bool quoted = text[begin] == '"';
  text.remove_prefix(begin + (quoted ? 1 : 0));
  const std::size_t end = std::min(quoted ? text.find('"') : text.find_first_of(separators), text.size());
  word = text.substr(0, end);
  text.remove_prefix(std::min(end + (quoted ? 1 : 0), text.size()));
  return true;
}

std::size_t n_words(std::string_view text) {
  std::size_t n = 0;
  for (std::string_view word; take_word(text, word);) ++n;
  return n;
}

std::vector<word_line> lines_of(std::string_view content) {
  if (content.starts_with("\xEF\xBB\xBF")) content.remove_prefix(3);
  std::vector<word_line> lines;
  for (std::int64_t number = 1; !content.empty(); ++number) {
    std::size_t end = content.find('\n');
    std::string_view text = content.substr(0, end);
    content.remove_prefix(std::min(end == std::string_view::npos ? end : end + 1, content.size()));
    if (text.ends_with('\r')) text.remove_suffix(1);
    if (text.find_first_not_of(" \t,;") != std::string_view::npos) lines.push_back({number, text});
  }
  return lines;
}

source_place place_of(const matrix_request& request, std::int64_t line) {
  return {request.file, static_cast<int>(line), 0};
}

// A heading that begins with #: three words over triplets, or the identifications over a square.
bool is_heading(std::string_view text, std::size_t rows, std::size_t width) {
  const std::size_t n = n_words(text);
  return (n == 3 && width == 3) || ((n == rows || n == rows + 1) && (width == rows || width == rows + 1));
}

// Lines that begin with # and are no elements, as a comment has them: one error. True after it.
bool refuse_comments(std::span<const word_line> lines, const matrix_request& request, message_log& log) {
  const auto marked = [](const word_line& l) { return l.text.starts_with('#'); };
  const auto element = std::find_if_not(lines.rbegin(), lines.rend(), marked);
  if (element == lines.rend() || std::ranges::none_of(lines, marked)) return false;
  const std::size_t width = n_words(element->text), rows = lines.size() - 1;
  repeated_lines comments;
  for (std::size_t k = 0; k < lines.size(); ++k) {
    const std::string_view text = lines[k].text;
    if (!marked(lines[k])) continue;
    const bool heading = k == 0 && !marked(lines[1]) && is_heading(text, rows, width);
    const bool named = k > 0 && !text.starts_with("# ") && n_words(text) == width;
    if (!heading && !named) add_line(comments, lines[k].line);
  }
  if (comments.n == 0) return false;
  add_error(log, place_of(request, comments.first.front()),
            "a line that begins with # is not an element; a matrix file has no comments: remove them" +
                where_in_words(comments, "in all"));
  return true;
}

// The first number with a decimal comma in a line whose values other signs separate; empty: none.
std::string_view decimal_comma_in(std::string_view text) {
  constexpr std::string_view separators = " \t;";
  std::string_view found;
  std::size_t n = 0;
  for (std::size_t at = 0; (at = text.find_first_not_of(separators, at)) != std::string_view::npos; ++n) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    const std::string_view word = text.substr(at, end - at);
    double v = 0.0;
    if (found.empty() && word.find(',') != std::string_view::npos && number_in(word, ',', v)) found = word;
    at = end;
  }
  return n > 1 ? found : std::string_view{};
}

// Puts one error in the place of those from entries[first] on when fractions are written with a comma.
void name_decimal_commas(std::span<const word_line> lines, const matrix_request& request, std::size_t first,
                         message_log& log) {
  repeated_cell commas;
  for (const word_line& l : lines) {
    const std::string_view word = decimal_comma_in(l.text);
    if (word.empty()) continue;
    if (commas.text.empty()) commas.text = word;
    add_line(commas.lines, l.line);
  }
  if (commas.lines.n == 0) return;
  log.entries.resize(first);
  add_error(log, place_of(request, commas.lines.first.front()),
            fmt::format("\"{}\" has a decimal comma; a matrix file takes decimal points{}",
                        shown(commas.text), where_in_words(commas.lines, "in all")));
}

// The values as they are in the file, one triangle, not yet merged; line[k] is where element k is.
struct text_matrix {
  std::vector<std::string> identification;
  std::vector<matrix_element> element;
  std::vector<std::int64_t> line;
};

std::int32_t level_in(text_matrix& m, level_table& level, std::string_view id) {
  if (const auto at = level.find(id); at != level.end()) return at->second;
  m.identification.emplace_back(id);
  const auto number = static_cast<std::int32_t>(m.identification.size());
  level.emplace(std::string(id), number);
  return number;
}

void add_value(text_matrix& m, std::int32_t i, std::int32_t j, double v, std::int64_t line) {
  m.element.push_back({std::max(i, j), std::min(i, j), v});
  m.line.push_back(line);
}

bool number_at(std::string_view word, const matrix_request& request, std::int64_t line, double& v,
               message_log& log) {
  if (number_in(word, '.', v)) return true;
  add_error(log, place_of(request, line), fmt::format("\"{}\" is not a number", shown(word)),
            "number " + request.file);
  return false;
}

void read_triplets(std::span<const word_line> lines, const matrix_request& request, text_matrix& m,
                   message_log& log) {
  level_table level;
  for (std::size_t k = 0; k < lines.size(); ++k) {
    std::string_view text = lines[k].text;
    std::array<std::string_view, 3> word;
    double v = 0.0;
    if (n_words(text) != 3) {
      add_error(log, place_of(request, lines[k].line),
                "expected three values here: identification, identification, number",
                "triplet " + request.file);
      continue;
    }
    for (std::string_view& w : word) take_word(text, w);
    if (k == 0 && !number_in(word[2], '.', v)) continue; // a heading
    if (!number_at(word[2], request, lines[k].line, v, log)) continue;
    const std::int32_t i = level_in(m, level, word[0]);
    const std::int32_t j = level_in(m, level, word[1]);
    add_value(m, i, j, v, lines[k].line);
  }
}

// The first line names the columns; a corner word above the names of the rows is left out.
void read_dense(std::span<const word_line> lines, const matrix_request& request, text_matrix& m,
                message_log& log) {
  const std::size_t n = lines.size() - 1;
  level_table level;
  std::string_view header = lines[0].text, word;
  const bool corner = n_words(header) == n + 1;
  if (corner) take_word(header, word);
  while (take_word(header, word)) level_in(m, level, word);
  if (m.identification.size() != n || n_words(lines[0].text) != n + (corner ? 1 : 0)) {
    add_error(
        log, place_of(request, lines[0].line),
        fmt::format("{} different identifications here, but {} rows below", m.identification.size(), n));
    return;
  }
  for (std::size_t i = 0; i < n; ++i) {
    std::string_view text = lines[i + 1].text;
    const std::size_t width = n_words(text);
    if (width != n && width != n + 1) {
      add_error(log, place_of(request, lines[i + 1].line),
                fmt::format("{} values here, {} expected", width, n), "width " + request.file);
      continue;
    }
    if (width == n + 1 && take_word(text, word) && word != m.identification[i])
      add_error(log, place_of(request, lines[i + 1].line),
                fmt::format("the row of \"{}\" is where that of \"{}\" is expected", shown(word),
                            shown(m.identification[i])));
    for (std::size_t j = 0; j < n; ++j) {
      double v = 0.0;
      take_word(text, word);
      if (number_at(word, request, lines[i + 1].line, v, log))
        add_value(m, static_cast<std::int32_t>(i + 1), static_cast<std::int32_t>(j + 1), v,
                  lines[i + 1].line);
    }
  }
}

bool looks_dense(std::span<const word_line> lines) {
  const std::size_t n = lines.size() - 1;
  const std::size_t header = n_words(lines[0].text);
  if (header != 3) return header == n || header == n + 1 || n_words(lines.back().text) != 3;
  const bool all_three =
      std::all_of(lines.begin(), lines.end(), [](const word_line& l) { return n_words(l.text) == 3; });
  if (!all_three) return true;
  // three words everywhere: a heading of triplets, or a square of three, or a square of two with names
  std::string_view text = lines[0].text;
  std::array<std::string_view, 3> word;
  for (std::string_view& w : word) take_word(text, w);
  double v = 0.0;
  if (number_in(word[2], '.', v)) return false;
  for (std::size_t k = 1; k < lines.size(); ++k) {
    text = lines[k].text;
    std::string_view first;
    take_word(text, first);
    if (n == 2 ? first != word[k] : !number_in(first, '.', v)) return false;
  }
  return n == 2 || n == 3;
}

// Sorts, merges the two triangles, leaves out zeros off the diagonal; every diagonal must be there.
bool order_elements(const matrix_request& request, text_matrix& m, std::vector<matrix_element>& sorted,
                    message_log& log) {
  const int n_errors = count_of(log, severity::error);
  std::vector<std::size_t> order(m.element.size());
  for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    const matrix_element &x = m.element[a], &y = m.element[b];
    return std::tuple(x.i, x.j, a) < std::tuple(y.i, y.j, b);
  });
  const auto id = [&](std::int32_t l) -> const std::string& { return m.identification[from1(l)]; };
  std::vector<std::uint8_t> diagonal(m.identification.size(), 0);
  for (std::size_t k = 0; k < order.size(); ++k) {
    const matrix_element& e = m.element[order[k]];
    if (e.i == e.j) diagonal[from1(e.i)] = 1;
    if (k > 0 && m.element[order[k - 1]].i == e.i && m.element[order[k - 1]].j == e.j) {
      const matrix_element& first = m.element[order[k - 1]];
      if (std::abs(first.v - e.v) > alike * (1.0 + std::abs(first.v) + std::abs(e.v)))
        add_error(log, place_of(request, m.line[order[k]]),
                  fmt::format("the element of \"{}\" and \"{}\" is {} here and {} in line {}", shown(id(e.i)),
                              shown(id(e.j)), e.v, first.v, m.line[order[k - 1]]),
                  "two values " + request.file);
      continue;
    }
    if (e.i == e.j || e.v != 0.0) sorted.push_back(e);
  }
  for (std::size_t l = 0; l < diagonal.size(); ++l)
    if (diagonal[l] == 0)
      add_error(log, place_of(request, 0),
                fmt::format("\"{}\" has no diagonal element", shown(m.identification[l])),
                "diagonal " + request.file);
  return count_of(log, severity::error) == n_errors;
}

std::vector<double> dense_of(std::span<const matrix_element> element, std::size_t n) {
  std::vector<double> a(n * n, 0.0);
  for (const matrix_element& e : element) {
    const auto i = from1(e.i), j = from1(e.j);
    a[i * n + j] = a[j * n + i] = e.v;
  }
  return a;
}

double smallest_eigenvalue(std::vector<double> a, int n) {
  const int one = 1, liwork = 10 * n;
  int m = 0, info = 0, lwork = -1;
  const double none = 0.0;
  std::vector<double> w(from0(n)), z(1), work(1);
  std::vector<int> isuppz(2 * from0(n)), iwork(from0(liwork));
  const auto call = [&] {
    dsyevr_("N", "I", "L", &n, a.data(), &n, &none, &none, &one, &one, &none, &m, w.data(), z.data(), &one,
            isuppz.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
  };
  call(); // lwork = -1 asks for the size
  lwork = static_cast<int>(work[0]);
  work.resize(from0(lwork));
  call();
  return info == 0 && m >= 1 ? w[0] : 0.0;
}

// Cholesky of a copy shows whether the eigenvalue is worth its time: no when the estimated condition is good.
bool clearly_positive(std::vector<double> a, int n) {
  double norm = 0.0; // largest column sum
  const auto order = from0(n);
  for (std::size_t j = 0; j < order; ++j) {
    double sum = 0.0;
    for (std::size_t i = 0; i < order; ++i) sum += std::abs(a[j * order + i]);
    norm = std::max(norm, sum);
  }
  int info = 0;
  dpotrf_("L", &n, a.data(), &n, &info);
  if (info != 0) return false;
  double rcond = 0.0;
  std::vector<double> work(3 * order);
  std::vector<int> iwork(order);
  dpocon_("L", &n, a.data(), &n, &norm, &rcond, work.data(), iwork.data(), &info);
  return info == 0 && rcond * norm > 10.0 * near_singular * norm;
}

void blend_matrix(const matrix_request& request, std::span<const std::string> identification, double fraction,
                  std::vector<double>& a) {
  const std::size_t n = identification.size();
  std::vector<double> other;
  if (request.blend_with) {
    other = request.blend_with(identification);
  } else {
    other.assign(n * n, 0.0);
    for (std::size_t i = 0; i < n; ++i) other[i * n + i] = 1.0;
  }
  for (std::size_t k = 0; k < a.size(); ++k) a[k] = (1.0 - fraction) * a[k] + fraction * other[k];
}

// Checks, blends and inverts; the elements of `given` are replaced by those of the inverse.
bool invert(const matrix_request& request, given_inverse& given, message_log& log) {
  const std::size_t order = given.identification.size();
  const int n = static_cast<int>(order);
  std::vector<double> a = dense_of(given.element, order);
  double mean_diagonal = 0.0;
  for (std::size_t i = 0; i < order; ++i) mean_diagonal += a[i * order + i] / static_cast<double>(n);

  double blend = request.blend.value_or(0.0);
  if (!clearly_positive(a, n)) {
    const double smallest = given.smallest_eigenvalue = smallest_eigenvalue(a, n);
    if (smallest < -eigenvalue_noise * std::max(mean_diagonal, 0.0) || mean_diagonal <= 0.0) {
      add_error(
          log, place_of(request, 0),
          fmt::format("the matrix is not positive definite (smallest eigenvalue {:.3g} of {})", smallest, n));
      return false;
    }
    if (smallest < near_singular * mean_diagonal && !request.blend) {
      blend = default_blend;
      add_warning(log, place_of(request, 0),
                  fmt::format("smallest eigenvalue {:.3g} of {}; blended with {} {} (set blend = ...)",
                              smallest, n, blend, request.blend_name));
    } else if (smallest < near_singular * mean_diagonal) {
      add_warning(log, place_of(request, 0),
                  fmt::format("smallest eigenvalue {:.3g} of {}; blended with {} {}", smallest, n, blend,
                              request.blend_name));
    }
  }
  if (blend != 0.0) blend_matrix(request, given.identification, blend, a);
  given.blended = blend;

  int info = 0;
  dpotrf_("L", &n, a.data(), &n, &info);
  if (info == 0) dpotri_("L", &n, a.data(), &n, &info);
  if (info != 0) {
    add_error(log, place_of(request, 0),
              fmt::format("the matrix is not positive definite (smallest eigenvalue {:.3g} of {}){}",
                          given.smallest_eigenvalue, n,
                          blend == 0.0 ? "; set blend = ..." : ", also when blended"));
    return false;
  }
  given.element.clear();
  for (std::size_t i = 0; i < order; ++i)
    for (std::size_t j = 0; j <= i; ++j)
      if (const double v = a[j * order + i]; i == j || v != 0.0)
        given.element.push_back({static_cast<std::int32_t>(i + 1), static_cast<std::int32_t>(j + 1), v});
  return true;
}

void check_diagonals(const matrix_request& request, const given_inverse& given, message_log& log) {
  constexpr double correlation_rounding = 1e-4; // of a text with few digits
  for (const matrix_element& e : given.element) {
    if (e.i != e.j) continue;
    const std::string& id = given.identification[from1(e.i)];
    if (e.v <= 0.0)
      add_error(log, place_of(request, 0),
                fmt::format("the diagonal element of \"{}\" is {}, not above 0", shown(id), e.v),
                "sign " + request.file);
    else if (request.kind == matrix_kind::correlation && std::abs(e.v - 1.0) > correlation_rounding)
      add_warning(log, place_of(request, 0),
                  fmt::format("the diagonal element of \"{}\" is {}; that of a correlation matrix is 1",
                              shown(id), e.v),
                  "one " + request.file);
  }
}

} // namespace

given_inverse given_matrix_of_text(std::string_view content, const matrix_request& request,
                                   message_log& log) {
  given_inverse given;
  const int n_errors = count_of(log, severity::error);
  const std::vector<word_line> lines = lines_of(content);
  if (lines.empty()) {
    add_error(log, place_of(request, 0), "the file is empty");
    return given;
  }
  if (refuse_comments(lines, request, log)) return given;
  text_matrix m;
  const std::size_t first = log.entries.size();
  const bool dense =
      request.form == matrix_form::dense || (request.form == matrix_form::by_columns && looks_dense(lines));
  if (dense)
    read_dense(lines, request, m, log);
  else
    read_triplets(lines, request, m, log);
  if (log.entries.size() > first) name_decimal_commas(lines, request, first, log);
  if (m.identification.empty() && count_of(log, severity::error) == n_errors)
    add_error(log, place_of(request, 0), "the file holds no elements");

  bool good = count_of(log, severity::error) == n_errors && order_elements(request, m, given.element, log);
  given.identification = std::move(m.identification);
  if (good) {
    check_diagonals(request, given, log);
    good = count_of(log, severity::error) == n_errors;
  }
  if (good && request.kind != matrix_kind::inverse) good = invert(request, given, log);
  if (!good) given.element.clear();
  return given;
}

given_inverse read_given_matrix(const matrix_request& request, message_log& log) {
  if (const std::string why = why_unreadable(request.file); !why.empty()) {
    add_error(log, place_of(request, 0), "the file can't be read: " + why);
    return {};
  }
  std::ifstream in(request.file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  return given_matrix_of_text(utf8_content(content, request.file, log), request, log);
}

} // namespace zeph::prepare
