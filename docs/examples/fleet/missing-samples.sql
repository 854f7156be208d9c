-- Nodes with missing samples: by the time between the samples of a device, and by the numbers of
-- the events, of which those that were not delivered are missing.
with samples as (
  select source, run, device_name, sequence,
         epoch(timestamp - lag(timestamp) over samples) as seconds
  from events where type = 'device'
  window samples as (partition by source, run, device_name order by sequence)),
intervals as (
  select source, run, device_name, median(seconds) as seconds from samples group by all),
missing as (
  select source, sum(round(samples.seconds / intervals.seconds) - 1)::bigint as missing_samples
  from samples join intervals using (source, run, device_name)
  where samples.seconds > 1.5 * intervals.seconds group by all),
undelivered as (
  select source, sum(step - 1)::bigint as undelivered_events from (
    select source,
           sequence - lag(sequence) over (partition by source, run order by sequence) as step
    from events) where step > 1 group by all)
select source, coalesce(missing_samples, 0) as missing_samples,
       coalesce(undelivered_events, 0) as undelivered_events
from missing full join undelivered using (source) order by source;
