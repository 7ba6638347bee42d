# What is known of a kind of trait, a row each:
#   number         of the kind in MODINF
#   word           in descriptions and pages
#   unit_variance  the residual variance is 1
#   drawn_by       the pass over the records that draws the values: none, bounds, liabilities, mixtures, sequences
#   stored         the values are part of the saved state
#   thresholds     between its categories
# names.json has the rows of its model's kinds. Where another program prepared the directory, MODINF has numbers only:
# they are looked up here.
kinds_by_number <- utils::read.table(header = TRUE, stringsAsFactors = FALSE, text = "
  number word      unit_variance drawn_by    stored thresholds
  1      gaussian  FALSE         none        FALSE  FALSE
  2      censored  FALSE         bounds      FALSE  FALSE
  3      ordered   FALSE         liabilities TRUE   TRUE
  4      binary    TRUE          liabilities TRUE   FALSE
  5      indicator TRUE          mixtures    TRUE   FALSE
  7      sequence  TRUE          sequences   FALSE  FALSE
  8      cured     TRUE          sequences   FALSE  FALSE
")

# The rows of the traits of model `m`, in their order; NA for a number that is in no table.
kinds_of_traits <- function(m) {
  known <- kinds_by_number
  if (m$labelled && length(m$names$kinds) > 0)
    known <- do.call(rbind, lapply(m$names$kinds, function(k) as.data.frame(k)[names(kinds_by_number)]))
  kinds <- known[match(vapply(m$traits, function(t) t$kind, 1L), known$number), ]
  rownames(kinds) <- NULL
  kinds
}

# Numbers of the traits that have thresholds; of those drawn by one of the passes.
with_thresholds <- function(m) which(m$kinds$thresholds)
drawn_by <- function(m, passes) which(m$kinds$drawn_by %in% passes)
