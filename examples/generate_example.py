#!/usr/bin/env python3
"""Writes example.csv: a simulated evaluation of a job-training programme.

400 employees; `training` (1 = attended the programme, 0 = did not) is the exposure,
`skills` (a skills-test score after the programme) the mediator and `wage` (hourly wage a
year later) the outcome; `age` and `tenure` (years with the employer) are covariates and
`region` (1 north, 2 centre, 3 south) a factor. About 3% of the skills, wage and tenure
values are missing. Run again to reproduce the file exactly (fixed seed).
"""
import random

random.seed(20261122)
rows = []
for i in range(400):
    region = random.choices([1, 2, 3], weights=[0.35, 0.40, 0.25])[0]
    age = round(random.gauss(38, 9), 1)
    tenure = round(max(0.0, random.gauss(6 + 0.15 * (age - 38), 3)), 1)
    # Older staff and staff in the centre sign up a little more often.
    p = 0.35 + 0.01 * (age - 38) + (0.1 if region == 2 else 0.0)
    training = 1 if random.random() < min(max(p, 0.05), 0.95) else 0
    skills = 55 + 7.5 * training + 0.25 * (age - 38) + 0.6 * tenure + (2.0 if region == 2 else 0.0) \
        + random.gauss(0, 8)
    wage = 14 + 1.2 * training + 0.11 * skills + 0.02 * training * skills + 0.05 * (age - 38) \
        + 0.25 * tenure - (0.8 if region == 3 else 0.0) + random.gauss(0, 2.2)
    row = [i + 1, training, round(skills, 2), round(wage, 2), age, tenure, region]
    for col in (2, 3, 5):
        if random.random() < 0.03:
            row[col] = ""
    rows.append(row)

with open("example.csv", "w") as out:
    out.write("id,training,skills,wage,age,tenure,region\n")
    for row in rows:
        out.write(",".join(str(v) for v in row) + "\n")
