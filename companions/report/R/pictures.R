# Pictures of the draws: traces that can be zoomed, densities by chain, rank plots, autocorrelations; curves.

picture_limit <- 12L  # names
trace_points <- 2000L # of a chain; longer chains are thinned for the trace alone
chain_colours <- c("#440154", "#1f9e89", "#b5a000", "#31688e", "#a63603")

# Names that get pictures: what was asked for, the worst by R-hat and ESS, then the rest in the order of the table.
pictured_names <- function(table, asked) {
  alive <- table[is.finite(table$ess_bulk), ]
  by_rhat <- alive$name[order(-alive$rhat)]
  by_ess <- alive$name[order(pmin(alive$ess_bulk, alive$ess_tail))]
  names <- unique(c(asked, utils::head(by_rhat, 2), utils::head(by_ess, 2), alive$name))
  utils::head(intersect(names, alive$name), picture_limit)
}

# A tag list for one name: the trace, and beside each other density, ranks and autocorrelation.
pictures_of_name <- function(draws, name, used, rounds) {
  x <- draws[, , name, drop = FALSE]
  array <- posterior::as_draws_array(array(x, dim(x), list(NULL, as.character(used), name)))
  bayesplot::color_scheme_set("viridis")
  several <- length(used) > 1
  plots <- if (several) list("density by chain" = bayesplot::mcmc_dens_overlay(array),
                             "ranks by chain" = bayesplot::mcmc_rank_overlay(array, ref_line = TRUE))
           else list(density = bayesplot::mcmc_dens(array))
  plots[["autocorrelation by lag"]] <- bayesplot::mcmc_acf(array, lags = min(40, dim(array)[1] %/% 3))
  images <- lapply(names(plots), function(what) captioned(image_of(plain_plot(plots[[what]], used),
    paste(name, what)), what))
  htmltools::tagList(tags$h3(name), trace_of(x, name, used, rounds), tags$div(class = "pictures", images))
}

captioned <- function(image, text) tags$figure(image, tags$figcaption(text))

# Colours of the chains, the same in all pictures.
colours_of <- function(used) chain_colours[(seq_along(used) - 1) %% length(chain_colours) + 1]

plain_plot <- function(p, used) {
  by_chain <- !is.null(p$labels$colour)
  legend <- if (by_chain) "bottom" else "none"
  if (by_chain) p <- suppressMessages(p + ggplot2::scale_colour_manual("Chain", values = colours_of(used)))
  p + ggplot2::labs(x = NULL, y = NULL, title = NULL) +
    ggplot2::theme(text = ggplot2::element_text(family = "sans"), legend.position = legend)
}

# A plot as an <img> that carries its bytes.
image_of <- function(plot, text, width = 400, height = 260) {
  file <- tempfile(fileext = ".png")
  on.exit(unlink(file))
  grDevices::png(file, width = 2 * width, height = 2 * height, res = 144, type = "cairo")
  tryCatch(suppressMessages(print(plot)), finally = grDevices::dev.off())
  tags$img(src = knitr::image_uri(file), alt = text, width = width, height = height)
}

trace_of <- function(x, name, used, rounds) {
  n <- dim(x)[1]
  at <- unique(round(seq(1, n, length.out = min(n, trace_points))))
  series <- data.frame(at * rounds, matrix(x[at, , 1], length(at)))
  names(series) <- c("round", paste("chain", used))
  id <- paste0("trace-", gsub("[^A-Za-z0-9]", "-", name))
  graph <- dygraphs::dygraph(series, width = "100%", height = 180, elementId = id)
  graph <- dygraphs::dyOptions(graph, strokeWidth = 0.7, colors = colours_of(used))
  graph <- dygraphs::dyAxis(graph, "x", label = "round after burn-in", drawGrid = FALSE)
  graph <- dygraphs::dyLegend(graph, width = 320, show = "onmouseover")
  # the axis holds rounds, not times: the libraries for time zones stay out of the page
  without <- htmltools::suppressDependencies("moment", "moment-timezone", "moment-fquarter")
  htmltools::tagList(without, graph)
}

# Mean and 95 % band of each quantity along the covariable.
curve_pictures <- function(curves) {
  pairs <- unique(curves[c("trait", "quantity")])
  one <- function(i) {
    rows <- curves[curves$trait == pairs$trait[i] & curves$quantity == pairs$quantity[i], ]
    what <- if (pairs$quantity[i] == "share") "shares of the phenotypic variance" else "variances"
    captioned(image_of(curve_plot(rows), paste(pairs$trait[i], what), 560, 340),
              paste0(pairs$trait[i], ": ", what, " along ", rows$covariable[1]))
  }
  tags$div(class = "pictures", lapply(seq_len(nrow(pairs)), one))
}

curve_plot <- function(rows) {
  ggplot2::ggplot(rows, ggplot2::aes(x = .data$x)) +
    ggplot2::geom_ribbon(ggplot2::aes(ymin = .data$low, ymax = .data$high, fill = .data$factor), alpha = 0.25) +
    ggplot2::geom_line(ggplot2::aes(y = .data$mean, colour = .data$factor)) +
    ggplot2::scale_colour_viridis_d(end = 0.7) + ggplot2::scale_fill_viridis_d(end = 0.7) +
    ggplot2::labs(x = rows$covariable[1], y = NULL, colour = NULL, fill = NULL) +
    ggplot2::theme_minimal() + ggplot2::theme(legend.position = "bottom")
}
