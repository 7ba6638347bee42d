# Moves that mix: shares accepted, from the listings of chains with the word `moves` in the file `sampler`.

rare_move <- 0.2 # below it a move gains little

# Data frame (chain, segment, move, burnin, after): a row a move of the last segment of each chain whose run has ended;
# shares in and after the burn-in, NA where the move was never tried. NULL when no listing has any.
read_mixing <- function(m, place) {
  rows <- list()
  for (chain in place$chains) for (s in rev(chain$segments)) {
    found <- mixing_of_listing(s$path, m)
    if (is.null(found)) next
    rows[[length(rows) + 1L]] <- cbind(chain = chain$number, segment = s$number, found)
    break
  }
  do.call(rbind, rows)
}

# Lines "Accepted moves, LABEL ....  BURNIN  AFTER" of a listing, the last one of each label: a chain that was resumed
# adds to the listing, and each model of an enumeration has lines of its own.
mixing_of_listing <- function(path, m) {
  form <- "^ *Accepted moves, (.*?)[ .]* +([0-9.]+|-) +([0-9.]+|-) *$"
  for (file in listing_files(path)) {
    lines <- grep(form, readLines(file, warn = FALSE, skipNul = TRUE), value = TRUE, perl = TRUE, useBytes = TRUE)
    part <- function(i) sub(form, paste0("\\", i), lines, perl = TRUE, useBytes = TRUE)
    share <- function(i) suppressWarnings(as.numeric(part(i)))
    move <- vapply(part(1), move_in_words, "", m = m, USE.NAMES = FALSE)
    last <- !is.na(move) & !duplicated(move, fromLast = TRUE)
    if (any(last)) return(data.frame(move = move, burnin = share(2), after = share(3))[last, ])
  }
  NULL
}

# "random factor no  1", "random factors no  1 and  2, first", "trait no  2" by the names of the model; NA for others.
move_in_words <- function(label, m) {
  form <- "^(random factor|random factors|trait) no *([0-9]+)( and *([0-9]+), (first|second))?$"
  part <- regmatches(label, regexec(form, label))[[1]]
  if (length(part) == 0) return(NA_character_)
  name <- function(number) { # of one of the factors or traits
    all <- if (part[2] == "trait") m$trait_names else vapply(m$factors, function(f) f$name, "")
    all[match(as.integer(number), seq_along(all))]
  }
  one <- name(part[3])
  other <- name(part[5])
  if (is.na(one) || (nzchar(part[5]) && is.na(other))) return(NA_character_)
  if (part[2] == "trait") return(paste("scale of trait", one))
  if (!nzchar(part[5])) return(paste("matrix and levels of factor", one))
  if (part[6] == "first") paste("exchange of factors:", other, "into", one)
  else paste("exchange of factors:", one, "into", other)
}

# Of all chains: data frame (move, burnin, after, lowest, highest), means over the chains, and the range of `after`.
pooled_mixing <- function(mixing) {
  if (is.null(mixing)) return(NULL)
  mean_of <- function(x) if (all(is.na(x))) NA_real_ else mean(x, na.rm = TRUE)
  end_of <- function(x, end) if (all(is.na(x))) NA_real_ else end(x, na.rm = TRUE)
  rows <- lapply(split(mixing, factor(mixing$move, unique(mixing$move))), function(d) {
    data.frame(move = d$move[1], burnin = mean_of(d$burnin), after = mean_of(d$after),
               lowest = end_of(d$after, min), highest = end_of(d$after, max))
  })
  do.call(rbind, unname(rows))
}
