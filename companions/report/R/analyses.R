# Questions asked of a type of analysis, the first number of the directive lines: 0 and below solve, 1 solve with
# sums of squares, 2 samples of the solutions, 3 and 4 of the (co)variances too, 5 a chain for each model, 6 and above a
# chain that moves between models. FALSE where the number is not known (NA).

solves <- function(analysis) isTRUE(analysis < 1)
gives_solutions_only <- function(analysis) isTRUE(analysis < 2)
samples_matrices <- function(analysis) isTRUE(analysis >= 3)
takes_given_matrices <- function(analysis) isTRUE(analysis < 3)
has_several_models <- function(analysis) isTRUE(analysis >= 5)
has_chain_for_each_model <- function(analysis) has_several_models(analysis) && !moves_between_models(analysis)
moves_between_models <- function(analysis) isTRUE(analysis >= 6)
