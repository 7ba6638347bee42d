# Makes normal_cdf_reference.csv and normal_quantile_reference.csv beside this file
# with mpmath at 60 digits. Arguments are the 64-bit numbers as they are printed.
import os

from mpmath import erfc, erfinv, mp, mpf, nstr, sqrt

mp.dps = 60
here = os.path.dirname(os.path.abspath(__file__))

x = [i / 8 for i in range(-300, 301)] + [1e-20, 1e-17, 2e-16, 1e-8, 1e-3, 0.66291, 0.66292, 5.656854248, 5.656854249]
x += [-v for v in x[601:]] + [1.959963984540054, -1.959963984540054, -37.6, 1.0e5, -1.0e5]
with open(os.path.join(here, "normal_cdf_reference.csv"), "w") as f:
    f.write("x,lower,upper\n")
    for v in sorted(set(x)):
        lower, upper = (nstr(erfc(s * mpf(v) / sqrt(2)) / 2, 20) if abs(v) < 1000 else str(float(s * v < 0)) for s in (-1, 1))
        f.write(f"{v!r},{lower},{upper}\n")

p = [1.000000013351432e-10, 2e-10, 1e-9, 1e-8, 1e-7, 1e-6, 1e-5, 1e-4, 0.001, 0.0025, 0.005, 0.01, 0.02, 0.025, 0.05]
p += [i / 64 for i in range(5, 60)] + [0.4999, 0.499999, 0.500001, 0.95, 0.975, 0.99, 0.995, 0.999, 0.9999, 0.99999]
p += [0.999999, 0.9999999, 0.99999999, 0.999999999, 0.9999999999]
with open(os.path.join(here, "normal_quantile_reference.csv"), "w") as f:
    f.write("p,x\n")
    for v in sorted(set(p)):
        f.write(f"{v!r},{nstr(sqrt(2) * erfinv(2 * mpf(v) - 1), 20)}\n")
