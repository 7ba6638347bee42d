# The words of the report: names and identifications that zeph-prepare left beside the model, or numbers.

# The model as the report uses it. Adds to read_modinf():
#   title, labelled, names (names.json or NULL)
#   trait_names (nt), kinds (data frame, a row a trait: see trait_kinds.R)
#   factors: list of list(number, name, structure, levels, order, rows, contributions, prior, start), rows a data frame
#     (row, name, label, trait, basis, covariable, degree, columns)
#   groups: codes of the residual groups as text; several: whether names of R carry them
read_model <- function(directory) {
  m <- read_modinf(file.path(directory, "MODINF"))
  m$directory <- directory
  json <- file.path(directory, "names.json")
  m$names <- if (file.exists(json)) jsonlite::fromJSON(json, simplifyVector = FALSE) else NULL
  if (!is.null(m$names) && !names_fit(m)) m$names <- NULL
  m$labelled <- !is.null(m$names)
  m$title <- if (m$labelled && nzchar(m$names$title)) m$names$title else basename(normalizePath(directory))
  m$trait_names <- trait_names_of(m)
  m$kinds <- kinds_of_traits(m)
  m$groups <- group_names_of(m)
  m$several_groups <- length(m$groups) > 1
  m$factors <- lapply(seq_len(m$nramat), function(k) factor_of(m, k))
  m
}

# names.json of another model must not name this one.
names_fit <- function(m) {
  length(m$names$traits) == m$nt && length(m$names$factors) == m$nramat &&
    all(vapply(seq_len(m$nramat), function(k) length(m$names$factors[[k]]$rows) == m$structures[[k]]$order, TRUE))
}

trait_names_of <- function(m) {
  if (m$labelled) return(vapply(m$names$traits, function(t) t$name, ""))
  names <- vapply(m$traits, function(t) t$name, "")
  ifelse(nzchar(names) & !duplicated(names), names, as.character(seq_along(names)))
}

group_names_of <- function(m) {
  groups <- m$structures[[m$nramat + 1L]]$groups
  named <- if (m$labelled) m$names$residual$groups else list()
  if (length(named) == nrow(groups) && length(named) > 0) return(vapply(named, function(g) as.character(g$code), ""))
  if (nrow(groups) == 0) "1" else as.character(groups$code)
}

factor_of <- function(m, k) {
  s <- m$structures[[k]]
  named <- if (m$labelled) m$names$factors[[k]] else NULL
  rows <- if (is.null(named)) numbered_rows(s) else named_rows(named)
  # rows are called by their trait where each trait has one plain row, else by their own names
  plain <- !is.null(named) && !anyDuplicated(rows$trait) && all(rows$basis == "1")
  rows$label <- if (plain) m$trait_names[rows$trait] else rows$name
  list(number = k, name = if (is.null(named)) as.character(k) else named$name, structure = s$structure,
       levels = m$NRALEV[k], order = s$order, rows = rows, contributions = s$contributions, start = s$start,
       scales = named$scales)
}

named_rows <- function(named) {
  take <- function(what, kind) vapply(named$rows, function(r) what(r), kind)
  term <- function(r, key, default) if (is.null(r$term[[key]])) default else r$term[[key]]
  rows <- data.frame(row = take(function(r) r$row, 1L), name = take(function(r) r$name, ""),
                     trait = take(function(r) r$trait, 1L), basis = take(function(r) term(r, "basis", "1"), ""),
                     covariable = take(function(r) term(r, "covariable", ""), ""),
                     degree = take(function(r) as.integer(term(r, "degree", 0L)), 1L),
                     columns = take(function(r) paste(unlist(term(r, "columns", list())), collapse = "+"), ""))
  rows
}

numbered_rows <- function(s) {
  rows <- data.frame(row = seq_len(s$order), name = as.character(seq_len(s$order)), trait = NA_integer_, basis = "1",
                     covariable = "", degree = 0L, columns = "")
  at <- match(rows$row, s$contributions$row)
  rows$trait <- s$contributions$trait[at]
  rows$basis <- ifelse(!is.na(at) & s$contributions$regression[at], "covariable", "1")
  rows
}

# "G[genetic,bwt,wwt]": the row of the smaller number first. `R[..]` has the group's code in front where there are
# several groups.
name_of_element <- function(m, k, r, c) {
  low <- pmin(r, c)
  high <- pmax(r, c)
  if (k <= m$nramat) {
    labels <- m$factors[[k]]$rows$label
    return(paste0("G[", m$factors[[k]]$name, ",", labels[low], ",", labels[high], "]"))
  }
  group <- if (m$several_groups) paste0(m$groups[k - m$nramat], ",") else ""
  paste0("R[", group, m$trait_names[low], ",", m$trait_names[high], "]")
}

# Identifications of the levels of factor k: data frame (level, identification, F, records), from codes_<factor>.csv or
# from CODE_TABLE, where the code is all there is and F is not known (NA).
read_levels <- function(m, k) {
  files <- if (m$labelled) unlist(m$names$files) else character(0)
  files <- setdiff(grep("^codes_.*[.]csv$", files, value = TRUE), "codes_fixed.csv")
  path <- file.path(m$directory, files[k])
  if (length(files) >= k && file.exists(path)) {
    codes <- utils::read.csv(path, colClasses = c(identification = "character"))
    return(data.frame(level = codes$level, identification = codes$identification, F = as.numeric(codes$F),
                      records = codes$records))
  }
  NULL
}
