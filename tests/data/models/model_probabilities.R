# Posterior probability of each number of rows of a factor, from averages of the density of the data over draws from
# the prior of the matrices: p_m ~ weight_m * mean over draws of N(y; 0, Z (A x G_m) Z' + R). G is inverse Wishart, G_m
# its leading m rows. Writes probabilities.csv: set, rows, probability, its standard error (of 100 batches).
#
#     Rscript --vanilla model_probabilities.R [draws]        2,000,000 draws; some minutes
#
# Shares nothing with the program: base R alone.
draws <- as.numeric(c(commandArgs(trailingOnly = TRUE), "2000000")[1])
batches <- 100
size <- draws / batches
set.seed(20261122)

# ---- matrices whose elements are vectors over draws: lists [[i]][[j]], j <= i

# Inverse Wishart, v degrees of freedom and mean M: the inverse of a Wishart matrix by its Bartlett factor.
inverse_wishart <- function(n, v, M) {
  q <- nrow(M)
  L <- t(chol(solve((v - q - 1) * M)))
  B <- lapply(1:q, function(i) lapply(1:i, function(j) 0))
  for (k in 1:q) {
    column <- lapply(1:q, function(i) if (i < k) 0 else if (i == k) sqrt(rchisq(n, v - k + 1)) else rnorm(n))
    for (i in k:q) for (j in k:i) B[[i]][[k]] <- B[[i]][[k]] + L[i, j] * column[[j]]
  }
  C <- lapply(1:q, function(i) as.list(rep(0, q))) # inverse of B, lower
  for (k in 1:q) for (i in k:q) {
    sum <- if (i == k) 1 else 0
    if (i > k) for (j in k:(i - 1)) sum <- sum - B[[i]][[j]] * C[[j]][[k]]
    C[[i]][[k]] <- sum / B[[i]][[i]]
  }
  lapply(1:q, function(i) lapply(1:i, function(j) Reduce(`+`, lapply(i:q, function(k) C[[k]][[i]] * C[[k]][[j]]))))
}

element <- function(M, i, j) if (i >= j) M[[i]][[j]] else M[[j]][[i]]

# log N(y; 0, V) for every draw
log_density <- function(y, V) {
  n <- length(y)
  L <- V
  z <- vector("list", n)
  out <- -0.5 * n * log(2 * pi)
  for (i in 1:n) {
    for (j in 1:i) {
      sum <- V[[i]][[j]]
      if (j > 1) for (k in 1:(j - 1)) sum <- sum - L[[i]][[k]] * L[[j]][[k]]
      L[[i]][[j]] <- if (i == j) sqrt(sum) else sum / L[[j]][[j]]
    }
    sum <- y[i]
    if (i > 1) for (k in 1:(i - 1)) sum <- sum - L[[i]][[k]] * z[[k]]
    z[[i]] <- sum / L[[i]][[i]]
    out <- out - log(L[[i]][[i]]) - 0.5 * z[[i]]^2
  }
  out
}

# set: values y of trait `trait` in record `record`; level, and the coefficients Z (values x rows) of the factor; A
# relationship of the levels; v_G, G0, v_R, R0, weights.
log_densities <- function(set, n) {
  G <- inverse_wishart(n, set$v_G, set$G0)
  R <- inverse_wishart(n, set$v_R, set$R0)
  N <- length(set$y)
  lapply(seq_len(nrow(set$G0)), function(m) {
    V <- lapply(1:N, function(a) lapply(1:a, function(b) {
      x <- if (set$record[a] == set$record[b]) element(R, set$trait[a], set$trait[b]) else rep(0, n)
      related <- set$A[set$level[a], set$level[b]]
      if (related != 0) for (i in 1:m) for (j in 1:m) {
        c <- related * set$Z[a, i] * set$Z[b, j]
        if (c != 0) x <- x + c * element(G, i, j)
      }
      x
    }))
    log_density(set$y, V)
  })
}

probabilities <- function(name, set) {
  logs <- lapply(1:batches, function(b) log_densities(set, size))
  top <- max(unlist(lapply(logs, function(l) max(unlist(l)))))
  means <- t(sapply(logs, function(l) sapply(l, function(x) mean(exp(x - top)))))  # batches x models
  weighted <- sweep(means, 2, set$weights, `*`)
  p <- colSums(weighted) / sum(weighted)
  # of the ratio of two means, by its first-order terms in each batch
  error <- sapply(seq_along(p), function(m)
    sd(weighted[, m] - p[m] * rowSums(weighted)) / sqrt(batches) / mean(rowSums(weighted)))
  data.frame(set = name, rows = seq_along(p), probability = signif(p, 7), error = signif(error, 3))
}

# ---- the three sets

curve <- function() {
  d <- read.csv("curve.csv")
  list(y = d$y, trait = rep(1, nrow(d)), record = seq_len(nrow(d)), level = d$unit, Z = cbind(1, d$x, d$x^2),
       A = diag(max(d$unit)), v_G = 9, G0 = matrix(c(0.6, 0.15, 0.1, 0.15, 0.5, 0.1, 0.1, 0.1, 0.4), 3),
       v_R = 6, R0 = matrix(0.5), weights = c(1, 1, 1))
}

# Tabular method; parents come before progeny.
relationship <- function(p) {
  n <- nrow(p)
  A <- matrix(0, n, n)
  of <- function(i, j) if (i == 0 || j == 0) 0 else A[i, j]
  for (i in 1:n) {
    for (j in seq_len(i - 1)) A[i, j] <- A[j, i] <- (of(p$sire[i], j) + of(p$dam[i], j)) / 2
    A[i, i] <- 1 + of(p$sire[i], p$dam[i]) / 2
  }
  A
}

related <- function() {
  d <- read.csv("related.csv")
  list(y = d$y, trait = rep(1, nrow(d)), record = seq_len(nrow(d)), level = d$animal, Z = cbind(1, d$x),
       A = relationship(read.csv("pedigree.csv")), v_G = 8, G0 = matrix(c(0.6, 0.1, 0.1, 0.4), 2), v_R = 6,
       R0 = matrix(0.5), weights = c(1, 1))
}

traits <- function() {
  d <- read.csv("traits.csv")
  y <- as.matrix(d[, c("y1", "y2", "y3")])
  at <- which(!is.na(y), arr.ind = TRUE)
  list(y = y[at], trait = at[, 2], record = at[, 1], level = d$unit[at[, 1]], Z = diag(3)[at[, 2], ],
       A = diag(max(d$unit)), v_G = 10, G0 = matrix(c(0.8, 0.2, 0.1, 0.2, 0.5, 0.1, 0.1, 0.1, 0.5), 3),
       v_R = 8, R0 = matrix(c(1, 0.4, 0.2, 0.4, 1, 0.3, 0.2, 0.3, 1), 3), weights = c(3, 1, 2))
}

out <- rbind(probabilities("curve", curve()), probabilities("related", related()), probabilities("traits", traits()))
write.csv(out, "probabilities.csv", row.names = FALSE, quote = FALSE)
print(out)
